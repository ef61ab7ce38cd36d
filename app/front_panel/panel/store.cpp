#include "store.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "bytes.h"
#include "console.h"
#include "devicetext.h"
#include "pflash.h"
#include "pfmedium_file.h"
#include "presetview.h"

namespace {

constexpr unsigned int LARGEST = FLASH_PARM_BLK_SIZE - PRESET_BLK_HDR_SIZE - PRESET_HDR_SIZE;
constexpr unsigned int BYTES_PER_LINE = 16;

PfFileMedium medium;
std::string storePath;

// One preset as the store's handles see it.
struct Payload {
  unsigned char bytes[LARGEST];
  unsigned int size;
};

bool readPayload(PresetMgr& handle, Payload& payload) {
  payload.size = sizeof payload.bytes;
  return handle.read(payload.bytes, payload.size) == ERR_OK;
}

// `count` bytes from `from` on as hexadecimal numbers, then as text.
std::string dumpLine(const Payload& payload, unsigned int from, unsigned int count) {
  std::string hex, text;
  for (unsigned int i = from; i < from + count; ++i) {
    char number[4];
    std::snprintf(number, sizeof number, "%02X ", unsigned{payload.bytes[i]});
    hex += number;
    text += payload.bytes[i] >= ' ' && payload.bytes[i] <= '~' ? static_cast<char>(payload.bytes[i])
                                                               : '.';
  }
  hex.resize(3 * BYTES_PER_LINE, ' ');
  return hex + "|" + text + "|";
}

// Calls `show` with a handle on every preset, by rising type. Types are all that a handle can look
// for, and there are few enough of them.
template <class Show>
void forEachPreset(Show show) {
  PresetMgr handle;
  for (unsigned int type = 0; type <= PRESET_TYPE_MASK; ++type) {
    int result = handle.openFirst(static_cast<unsigned short>(type), PM_READ);
    for (; result != ERR_NOT_FOUND; result = handle.openNext()) {
      if (result == ERR_OK) {
        show(handle, type);
      }
    }
  }
}

// Room for the payload of one more preset, as a write judges it. `present`: the type of the first
// preset to be replaced is left out of the sum; above all types for none.
unsigned int roomFor(unsigned int present) {
  unsigned int used = PRESET_BLK_HDR_SIZE + PRESET_HDR_SIZE;
  forEachPreset([&](PresetMgr& handle, unsigned int type) {
    Payload payload;
    if (type == present) {
      present = PRESET_TYPE_MASK + 1;
    } else if (readPayload(handle, payload)) {
      used += PRESET_HDR_SIZE + presetPadded(payload.size);
    }
  });
  return used < FLASH_PARM_BLK_SIZE ? FLASH_PARM_BLK_SIZE - used : 0;
}

// Reads a type from the front of `args`.
bool parseType(const char*& args, unsigned short& type) {
  unsigned int number;
  if (!device::parseNumber(args, number) || std::strchr(" \t", *args) == nullptr ||
      number > PRESET_TYPE_MASK) {
    return complain("a preset has a type from 0 to %u", unsigned{PRESET_TYPE_MASK});
  }
  device::skipBlanks(args);
  type = static_cast<unsigned short>(number);
  return true;
}

bool noPreset(unsigned int type) {
  return complain("no preset of type %u; \"preset list\" shows all", type);
}

bool list(const char*) {
  unsigned int presets = 0;
  forEachPreset([&](PresetMgr& handle, unsigned int type) {
    Payload payload;
    if (readPayload(handle, payload)) {
      say("type %-4u  %4u bytes  %s%s", type, payload.size,
          dumpLine(payload, 0, std::min(payload.size, BYTES_PER_LINE)).c_str(),
          payload.size > BYTES_PER_LINE ? "..." : "");
      ++presets;
    }
  });
  say("%u %s; a new one has room for %u bytes", presets, presets == 1 ? "preset" : "presets",
      presets < NUM_PRESETS ? roomFor(PRESET_TYPE_MASK + 1) : 0);
  return true;
}

bool write(const char* args) {
  unsigned short type = 0;
  if (!parseType(args, type)) {
    return false;
  }
  const unsigned int size = static_cast<unsigned int>(std::strlen(args));
  if (size == 0) {
    return complain("a preset takes a text of at least one character");
  }
  PresetMgr handle;
  const bool present = handle.openFirst(type, PM_WRITE) == ERR_OK;
  if (!present && handle.openNew(type) != ERR_OK) {
    return complain("the store is full: it has %u presets", NUM_PRESETS);
  }
  if (handle.write(args, size) != ERR_OK) {
    return complain("no room for %u bytes, %u at most", size,
                    roomFor(present ? unsigned{type} : PRESET_TYPE_MASK + 1U));
  }
  say("preset %u has %u bytes; they reach %s after 20 s of quiet, or with \"preset flush\"",
      unsigned{type}, size, storePath.c_str());
  return true;
}

bool read(const char* args) {
  unsigned short type = 0;
  if (!parseType(args, type) || !parseEnd(args)) {
    return false;
  }
  PresetMgr handle;
  int result = handle.openFirst(type, PM_READ);
  if (result == ERR_NOT_FOUND) {
    return noPreset(type);
  }
  for (; result != ERR_NOT_FOUND; result = handle.openNext()) {
    Payload payload;
    if (result != ERR_OK || !readPayload(handle, payload)) {
      continue;
    }
    say("type %u, %u bytes", unsigned{type}, payload.size);
    for (unsigned int line = 0; line < payload.size; line += BYTES_PER_LINE) {
      say("  %s", dumpLine(payload, line, std::min(payload.size - line, BYTES_PER_LINE)).c_str());
    }
  }
  return true;
}

bool remove(const char* args) {
  unsigned short type = 0;
  if (!parseType(args, type) || !parseEnd(args)) {
    return false;
  }
  PresetMgr handle;
  if (handle.openFirst(type, PM_WRITE) != ERR_OK) {
    return noPreset(type);
  }
  handle.remove();
  say("preset %u is removed", unsigned{type});
  return true;
}

// Brings everything to the file. A write that fails is repeated for a while.
bool flushAll() {
  constexpr unsigned int TRIES = 20;
  constexpr unsigned int TRY_US = 100000;
  for (unsigned int failures = 0; PresetMgr::flush() != 0 || *medium.error() != 0;) {
    if (*medium.error() != 0) {
      if (++failures == TRIES) {
        return complain("not everything is stored: %s", medium.error());
      }
      usleep(TRY_US);
    }
  }
  return true;
}

bool flush(const char*) {
  if (!flushAll()) {
    return false;
  }
  say("all presets are in %s", storePath.c_str());
  return true;
}

bool format(const char*) {
  PresetMgr::format();
  say("all presets are removed");
  return true;
}

// The words that the medium holds at this moment.
class MediumWords : public PresetWords {
 public:
  unsigned short word(unsigned int addr) const override {
    unsigned char buf[2];
    pfReadBlk(addr, buf, sizeof buf);
    return static_cast<unsigned short>(getBigEndian(buf, sizeof buf));
  }
};

bool map(const char*) {
  constexpr unsigned int CELLS_PER_LINE = 64;
  char cells[PRESET_MAP_CELLS + 1];
  const MediumWords words;
  const presetView_t view = presetView(words);
  say("%s, now: %s", storePath.c_str(), presetMapLegend);
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    presetMap(words, view, blkid, cells);
    for (unsigned int i = 0; i < PRESET_MAP_CELLS; i += CELLS_PER_LINE) {
      say("0x%04X  %.*s", getBlkAddr(blkid) + i * PRESET_MAP_CELL_SIZE,
          static_cast<int>(CELLS_PER_LINE), cells + i);
    }
  }
  return true;
}

const Command PRESET[] = {
    {"list", "", "all presets, and the room that is left", list, nullptr},
    {"write", "TYPE TEXT", "replaces the first preset of a type, or makes one", write, nullptr},
    {"read", "TYPE", "shows the presets of a type", read, nullptr},
    {"remove", "TYPE", "removes the first preset of a type", remove, nullptr},
    {"flush", "", "brings everything to the store file now", flush, nullptr},
    {"format", "", "removes all presets", format, nullptr},
    {"map", "", "draws what the store file holds", map, nullptr},
    {}};

bool preset(const char* args) {
  return runGroup("preset", PRESET, args);
}

std::vector<std::string> completePreset(const std::string& word) {
  return completeGroup(PRESET, word);
}

}  // namespace

const Command STORE_COMMANDS[] = {
    {"preset", "[COMMAND]", "the preset store: list, write, read, remove, flush, format, map",
     preset, completePreset},
    {}};

bool storeStart(const char* path) {
  storePath = path;
  if (!medium.open(path, true)) {
    std::fprintf(stderr, "panel: %s\n", medium.error());
    return false;
  }
  pfUseMedium(&medium);
  return true;
}

void storeService() {
  // Ten times a second; a device's own loop would run one pass at a time, and more often.
  constexpr unsigned int PASSES = 50;
  for (unsigned int i = 0; i < PASSES; ++i) {
    PresetMgr::service();
  }
}

bool storeEnd() {
  return flushAll();
}
