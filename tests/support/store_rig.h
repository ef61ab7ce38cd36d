// A preset store on a simulated part: the verbs in which the store's tests tell their stories.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "pfmedium_sim.h"
#include "presetstore.h"

/// What one entry holds.
struct Preset {
  unsigned short type;
  std::string bytes;
  bool operator==(const Preset& other) const { return type == other.type && bytes == other.bytes; }
};

/// All presets, by id.
using Content = std::map<unsigned int, Preset>;

inline void PrintTo(const Preset& preset, std::ostream* out) {
  *out << "type " << preset.type << ", " << preset.bytes.size()
       << " bytes: " << testing::PrintToString(preset.bytes.substr(0, 8));
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
    return doService(forceWrite);
  }

  /// Flushes until nothing is left. False when power is lost on the way.
  bool drain() {
    for (int passes = 0; passes < 200000; ++passes) {
      part.beginPass();
      if (PresetMgr::flush() == 0) {
        return true;
      }
      if (!part.powered()) {
        return false;
      }
    }
    ADD_FAILURE() << "the store does not come to rest";
    return false;
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
    if (handle.openFirst(type, PM_WRITE) != ERR_OK && handle.openNew(type) != ERR_OK) {
      return ERR_NOT_FOUND;
    }
    return handle.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
  }

  static int remove(unsigned short type) {
    PresetMgr handle;
    const int res = handle.openFirst(type, PM_WRITE);
    return res == ERR_OK ? handle.remove() : res;
  }

  /// The first preset of `type`; empty when there is none.
  static std::string read(unsigned short type) {
    PresetMgr handle;
    std::string bytes(FLASH_PARM_BLK_SIZE, '\0');
    unsigned int len = FLASH_PARM_BLK_SIZE;
    const bool found =
        handle.openFirst(type, PM_READ) == ERR_OK && handle.read(&bytes[0], len) == ERR_OK;
    bytes.resize(found ? len : 0);
    return bytes;
  }

  /// All that the store's index shows.
  static Content content() {
    Content all;
    for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
      const preset_t& preset = presetStore.user[id];
      if (!preset.erased) {
        const presetServ_t& serv = preset.serv[preset.serv[1].op == PREOP_WRITE ? 1 : 0];
        const char* const from = reinterpret_cast<const char*>(presetStore.ramCopy);
        all[id] = {serv.type, std::string(from + serv.dataStart, serv.size)};
      }
    }
    return all;
  }

  /// The bytes of the medium from store address `addr` on, in hexadecimal.
  std::string medium(unsigned int addr, unsigned int len) const {
    std::string hex;
    for (unsigned int i = 0; i < len; ++i) {
      char digits[4];
      std::snprintf(digits, sizeof digits, i == 0 ? "%02X" : " %02X", part.array().bytes[addr + i]);
      hex += digits;
    }
    return hex;
  }

  PfSimMedium part;
};

/// Builds the content of a medium word by word.
class Image : public NorArray {
 public:
  explicit Image(unsigned int start = 0) : at(start) {}

  Image& seek(unsigned int addr) {
    at = addr;
    return *this;
  }
  Image& word(unsigned int value) {
    program(at, static_cast<unsigned short>(value));
    at += 2;
    return *this;
  }
  /// Payload bytes; an odd last one is padded with 0xFF.
  Image& payload(const std::string& data) {
    for (unsigned int i = 0; i < data.size(); i += 2) {
      const unsigned int low = i + 1 < data.size() ? static_cast<unsigned char>(data[i + 1]) : 255;
      word(static_cast<unsigned char>(data[i]) * 256U + low);
    }
    return *this;
  }
  /// A record of version 1.
  Image& record(unsigned int head, unsigned int id, const std::string& data) {
    return word(head).word(id).word(static_cast<unsigned int>(data.size())).payload(data);
  }
  /// A record of version 0.
  Image& record0(unsigned int head, unsigned int id, const std::string& data) {
    return word(head).word(id).word(0).word(static_cast<unsigned int>(data.size())).payload(data);
  }

  unsigned int at;
};
