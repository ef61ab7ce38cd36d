// A preset store on a simulated part: the verbs in which the store's tests tell their stories.
#pragma once

#include <cstdio>
#include <map>
#include <sstream>
#include <string>

#include "debug.h"
#include "pfmedium_sim.h"
#include "presetmgr.h"
#include "presetstore.h"

/// What one entry holds.
struct Stored {
  unsigned short type;
  std::string bytes;
  bool operator==(const Stored& other) const { return type == other.type && bytes == other.bytes; }
};

/// All presets, by id.
using Content = std::map<unsigned int, Stored>;

inline void PrintTo(const Stored& preset, std::ostream* out) {
  *out << "type " << preset.type << ", " << preset.bytes.size() << " bytes";
}

class StoreRig {
 public:
  StoreRig() {
    pfUseMedium(&part);
    resetPresetStore();
    part.beginPass();
  }
  ~StoreRig() { resetPresetStore(); }

  /// One pass; true when the store is idle.
  bool pass(bool forceWrite = true) {
    part.beginPass();
    if (forceWrite) {
      return PresetMgr::flush() == 0;
    }
    PresetMgr::service();
    return presetService.action == ACT_NONE;
  }

  /// Flushes until nothing is left. False when power is lost on the way.
  bool drain() {
    for (int passes = 0; !pass(); ++passes) {
      CTRL_ASSERT(passes < 200000);
      if (!part.powered()) {
        return false;
      }
    }
    return true;
  }

  /// Starts the process anew on what the medium holds.
  void restart() {
    part.powerUp();
    resetPresetStore();
    PresetMgr handle;
  }

  /// Replaces the medium and starts the process on it.
  void restartOn(const NorArray& image) {
    part.powerUp();
    part.load(image);
    restart();
  }

  /// Stores a preset under `type` as an application does.
  static int write(unsigned short type, const std::string& bytes) {
    PresetMgr handle;
    if (handle.openFirst(type, PM_WRITE) != ERR_OK) {
      handle.openNew(type);
    }
    return handle.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
  }

  static int remove(unsigned short type) {
    PresetMgr handle;
    handle.openFirst(type, PM_WRITE);
    return handle.remove();
  }

  /// The first preset of `type`; empty when there is none.
  static std::string read(unsigned short type) {
    PresetMgr handle;
    std::string bytes(FLASH_PARM_BLK_SIZE, '\0');
    unsigned int len = FLASH_PARM_BLK_SIZE;
    handle.openFirst(type, PM_READ);
    bytes.resize(handle.read(&bytes[0], len) == ERR_OK ? len : 0);
    return bytes;
  }

  /// All that the store's index shows.
  static Content content() {
    Content all;
    for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
      const preset_t& preset = presetStore.user[id];
      if (!preset.erased) {
        const presetServ_t& serv = preset.serv[preset.serv[1].op == PREOP_WRITE ? 1 : 0];
        CTRL_ASSERT(serv.dataStart + serv.size <= presetStore.ramCopyEnd);
        const char* const from = reinterpret_cast<const char*>(presetStore.ramCopy);
        all[id] = {serv.type, std::string(from + serv.dataStart, serv.size)};
      }
    }
    return all;
  }

  /// The same as far as a conversion of the medium keeps it: of a type 13 bits.
  static Content lasting() {
    Content all = content();
    for (auto& [id, preset] : all) {
      preset.type &= PRESET_TYPE_MASK;
    }
    return all;
  }

  PfSimMedium part;
};

/// The content of a medium from a text: words in hexadecimal, records, and @address, in decimal, to
/// go on elsewhere. A record is live:type,id,payload in decimal; dead: is a deleted one, open: one
/// that was never confirmed, live0: and dead0: are records of version 0. A payload of *n is n
/// bytes.
class Image : public NorArray {
 public:
  explicit Image(const std::string& text) {
    std::istringstream in(text);
    for (std::string token; in >> token;) {
      if (token[0] == '@') {
        at = static_cast<unsigned int>(std::stoul(token.substr(1)));
      } else if (token.find(':') != std::string::npos) {
        record(token);
      } else {
        word(static_cast<unsigned int>(std::stoul(token, nullptr, 16)));
      }
    }
  }

 private:
  void word(unsigned int value) {
    program(at, static_cast<unsigned short>(value));
    at += 2;
  }

  void record(const std::string& token) {
    const bool ver0 = token[4] == '0';
    unsigned int head = 0, id = 0;
    int end = 0;
    std::sscanf(token.c_str() + token.find(':'), ":%u,%u,%n", &head, &id, &end);
    std::string data = token.substr(token.find(':') + static_cast<unsigned int>(end));
    if (data[0] == '*') {
      data = std::string(std::stoul(data.substr(1)), 'p');
    }
    head |= ver0 || token[0] == 'd' ? 0 : token[0] == 'l' ? 0x2000 : 0x6000;
    word(ver0 && token[0] == 'd' ? 0 : head);
    word(id);
    if (ver0) {
      word(0);
    }
    word(static_cast<unsigned int>(data.size()));
    data.resize(presetPadded(static_cast<unsigned int>(data.size())), '\xFF');
    for (const char c : data) {
      bytes[at++] = static_cast<unsigned char>(c);
    }
  }

  unsigned int at = 0;
};
