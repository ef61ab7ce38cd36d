#include "store.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "bytes.h"
#include "console.h"
#include "devicetext.h"
#include "filereplace.h"
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

// An image begins with the version of the setups' list, a number below that of any character.
bool isText(const Payload& payload) {
  return payload.bytes[0] >= ' ';
}

// Calls `show` with a handle on every record from type `first` on, by rising type.
template <class Show>
void forEachRecord(unsigned int first, Show show) {
  PresetMgr handle;
  for (int type = PresetMgr::nextType(static_cast<int>(first) - 1); type >= 0;
       type = PresetMgr::nextType(type)) {
    int result = handle.openFirst(static_cast<unsigned short>(type), PM_READ);
    for (; result != ERR_NOT_FOUND; result = handle.openNext()) {
      if (result == ERR_OK) {
        show(handle, static_cast<unsigned int>(type));
      }
    }
  }
}

// Room for the payload of one more preset, as a write judges it. `present`: the type of the first
// preset to be replaced is left out of the sum; above all types for none.
unsigned int roomFor(unsigned int present) {
  unsigned int used = PRESET_BLK_HDR_SIZE + PRESET_HDR_SIZE;
  forEachRecord(0, [&](PresetMgr& handle, unsigned int type) {
    Payload payload;
    if (type == present) {
      present = PRESET_TYPE_MASK + 1;
    } else if (readPayload(handle, payload)) {
      used += PRESET_HDR_SIZE + presetPadded(payload.size);
    }
  });
  return used < FLASH_PARM_BLK_SIZE ? FLASH_PARM_BLK_SIZE - used : 0;
}

// Reads the number of a preset from the front of `args`; gives its type. That is the old one as
// long as there was no room to move it.
bool parseType(const char*& args, unsigned short& type) {
  unsigned int number;
  if (!device::parseNumber(args, number) || std::strchr(" \t", *args) == nullptr ||
      number > LAST_PRESET) {
    return complain("a preset has a number from 0 to %u", LAST_PRESET);
  }
  device::skipBlanks(args);
  type = static_cast<unsigned short>(PRESET_TYPES + number);
  if (PresetMgr::nextType(type - 1) != type && storeHoldsText(number)) {
    type = static_cast<unsigned short>(number);
  }
  return true;
}

unsigned int numberOf(unsigned int type) {
  return type < PRESET_TYPES ? type : type - PRESET_TYPES;
}

bool noPreset(unsigned int type) {
  return complain("no preset %u; \"preset list\" shows all", numberOf(type));
}

bool list(const char*) {
  unsigned int presets = 0;
  unsigned int records = 0;
  forEachRecord(0, [&](PresetMgr& handle, unsigned int type) {
    Payload payload;
    ++records;
    if (readPayload(handle, payload) && (type >= PRESET_TYPES || isText(payload))) {
      say("preset %-4u  %4u bytes  %s%s", numberOf(type), payload.size,
          dumpLine(payload, 0, std::min(payload.size, BYTES_PER_LINE)).c_str(),
          payload.size > BYTES_PER_LINE ? "..." : "");
      ++presets;
    }
  });
  say("%u %s; a new one has room for %u bytes", presets, presets == 1 ? "preset" : "presets",
      records < NUM_PRESETS ? roomFor(PRESET_TYPE_MASK + 1) : 0);
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
    return complain("the store is full: it has %u presets and setups", NUM_PRESETS);
  }
  if (handle.write(args, size) != ERR_OK) {
    return complain("no room for %u bytes, %u at most", size,
                    roomFor(present ? unsigned{type} : PRESET_TYPE_MASK + 1U));
  }
  say("preset %u has %u bytes; they reach %s after 20 s of quiet, or with \"preset flush\"",
      numberOf(type), size, storePath.c_str());
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
    say("preset %u, %u bytes", numberOf(type), payload.size);
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
  say("preset %u is removed", numberOf(type));
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
  say("all presets and setups are in %s", storePath.c_str());
  return true;
}

bool format(const char*) {
  PresetMgr::format();
  say("the store is empty: all presets and all setups are removed");
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

// What an older panel has left.

bool isRecord(unsigned int type, const Payload& payload) {
  bool found = false;
  forEachRecord(type, [&](PresetMgr& handle, unsigned int at) {
    Payload other;
    found = found || (at == type && readPayload(handle, other) && other.size == payload.size &&
                      std::memcmp(other.bytes, payload.bytes, payload.size) == 0);
  });
  return found;
}

// The type that a record in the wrong half is to have. A copy of it there, from a start that a
// power cut has ended, is the one.
unsigned int homeOf(unsigned int type, const Payload& payload) {
  if (isText(payload)) {
    return PRESET_TYPES + type;
  }
  unsigned int to = LAST_USER_SETUP + 1;
  while (to > 0 && PresetMgr::nextType(static_cast<int>(to) - 1) == static_cast<int>(to) &&
         !isRecord(to, payload)) {
    --to;
  }
  return to;
}

// Copies a record, unless it is there, and waits until the file has the copy.
bool copyRecord(const Payload& payload, unsigned int to) {
  if (!isRecord(to, payload)) {
    PresetMgr handle;
    if (to == 0 || handle.openNew(static_cast<unsigned short>(to)) != ERR_OK ||
        handle.write(payload.bytes, payload.size) != ERR_OK) {
      return false;
    }
  }
  return flushAll();
}

// Moves the records of `type` that stand in the wrong half.
void separate(unsigned int type) {
  const bool setups = type < PRESET_TYPES;
  PresetMgr handle;
  int result = handle.openFirst(static_cast<unsigned short>(type), PM_WRITE);
  for (; result != ERR_NOT_FOUND; result = handle.openNext()) {
    Payload payload;
    if (result != ERR_OK || !readPayload(handle, payload) || isText(payload) != setups) {
      continue;
    }
    const std::string what =
        setups ? "preset " + std::to_string(type) : "user setup " + std::to_string(type - 1);
    const unsigned int to = homeOf(type, payload);
    if (!copyRecord(payload, to)) {
      complain("%s of an older panel stays where a setup may be: there is no room to move it",
               what.c_str());
      continue;
    }
    handle.remove();
    say("%s of an older panel has been moved in the store; it is %s %u", what.c_str(),
        setups ? "preset" : "user setup", setups ? numberOf(to) : to - 1);
  }
}

const Command PRESET[] = {
    {"list", "", "all presets, and the room that is left", list, nullptr},
    {"write", "N TEXT", "replaces preset N, or makes it", write, nullptr},
    {"read", "N", "shows preset N", read, nullptr},
    {"remove", "N", "removes preset N", remove, nullptr},
    {"flush", "", "brings everything to the store file now", flush, nullptr},
    {"format", "", "empties the store: removes all presets and all setups", format, nullptr},
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

namespace {

bool openMedium() {
  if (!medium.open(storePath.c_str(), true)) {
    std::fprintf(stderr, "panel: %s\n", medium.error());
    return false;
  }
  pfUseMedium(&medium);
  return true;
}

// Empty for a file that is not there.
std::string contentOf(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The name under which the store file is kept aside, as it is now; a copy takes its place.
std::string keepStore() {
  const std::string name = std::filesystem::canonical(storePath);
  const std::string content = contentOf(name);
  for (unsigned int number = 1; number <= 9; ++number) {
    std::string kept = name + ".damaged-" + std::to_string(number);
    if (contentOf(kept) == content) {
      return kept;  // nothing has been written since the last start
    }
  }
  FileReplacement copy(name);
  std::ofstream out(copy.temporary(), std::ios::binary);
  out << content;
  out.close();
  if (content.size() != FLASH_AREA_SIZE || !out) {
    throw std::runtime_error("it cannot be copied");
  }
  return copy.commit("damaged");
}

// Before the store erases what may have been presets. What was lost to a power cut is no damage.
bool keepDamaged() {
  const presetFindings_t findings = presetJudge(presetView(MediumWords()));
  if (findings.worst != FAULT_LOSS) {
    return true;
  }
  std::string kept;
  try {
    kept = keepStore();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "panel: %s is damaged and cannot be kept aside: %s\n", storePath.c_str(),
                 e.what());
    return false;
  }
  std::fprintf(stderr, "panel: %s is damaged; it is kept as %s\n", storePath.c_str(), kept.c_str());
  for (unsigned int i = 0; i < findings.count; ++i) {
    std::fprintf(stderr, "panel: %s\n", findings.at[i].line);
  }
  medium.close();
  return openMedium();
}

}  // namespace

bool storeStart(const char* path) {
  storePath = path;
  return openMedium() && keepDamaged();
}

void storeSeparate() {
  for (int type = PresetMgr::nextType(-1); type >= 0; type = PresetMgr::nextType(type)) {
    separate(static_cast<unsigned int>(type));
  }
}

bool storeHoldsText(unsigned int type) {
  bool found = false;
  forEachRecord(type, [&](PresetMgr& handle, unsigned int at) {
    Payload payload;
    found = found || (at == type && readPayload(handle, payload) && isText(payload));
  });
  return found;
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
