// Any content of the medium, then any run of handle operations and service passes.
//
// The input is a run of steps, a byte for the kind and its arguments: first patches of an erased
// medium, then, behind a step of kind 0, operations on the store. The simulated part stops the
// process when the store breaks a rule of the medium. Whatever the medium held, the store comes
// up, does not stop the process, and what a drained flush has acknowledged is there after a
// restart.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pfmedium_sim.h"
#include "presetmgr.h"
#include "presetstore.h"

namespace {

void require(bool cond) {
  if (!cond) {
    std::abort();
  }
}

class Input {
 public:
  Input(const std::uint8_t* d, std::size_t s) : data(d), left(s) {}
  bool more() const { return left > 0; }
  unsigned int byte() {
    if (left == 0) {
      return 0;
    }
    --left;
    return *data++;
  }
  unsigned int word() {
    const unsigned int high = byte();
    return high << 8 | byte();
  }

 private:
  const std::uint8_t* data;
  std::size_t left;
};

using Content = std::multiset<std::pair<unsigned int, std::string>>;

// Everything in the store. A type of a version 0 record keeps its low 13 bits when it is converted.
Content readAll() {
  Content all;
  for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
    const preset_t& preset = presetStore.user[id];
    if (!preset.erased) {
      const presetServ_t& serv = preset.serv[preset.serv[1].op == PREOP_WRITE ? 1 : 0];
      require(serv.dataStart <= presetStore.ramCopyEnd);
      require(serv.size <= presetStore.ramCopyEnd - serv.dataStart);
      const char* const payload = reinterpret_cast<char*>(presetStore.ramCopy) + serv.dataStart;
      all.emplace(serv.type & PRESET_TYPE_MASK, std::string(payload, serv.size));
    }
  }
  return all;
}

void patchMedium(Input& in, PfSimMedium& medium) {
  const std::unique_ptr<NorArray> image = std::make_unique<NorArray>();
  while (in.more()) {
    const unsigned int count = in.byte();
    if (count == 0) {
      break;
    }
    unsigned int addr = in.word() % FLASH_AREA_SIZE;
    for (unsigned int i = 0; i < count % 32 && addr < FLASH_AREA_SIZE; ++i, ++addr) {
      image->bytes[addr] = static_cast<unsigned char>(in.byte());
    }
  }
  medium.load(*image);
}

void drain(PfSimMedium& medium) {
  int passes = 0;
  do {
    medium.beginPass();
    require(++passes < 200000);
  } while (PresetMgr::flush() != 0);
}

void operate(Input& in, PfSimMedium& medium, PresetMgr& handle) {
  const unsigned int kind = in.byte();
  const unsigned short type = static_cast<unsigned short>(in.byte() % 8);
  switch (kind % 8) {
    case 0:
    case 1:
      if (handle.openFirst(type, PM_WRITE) != ERR_OK) {
        handle.openNew(type);
      }
      break;
    case 2:
    case 3: {
      std::vector<unsigned char> payload(in.word() % 9000, static_cast<unsigned char>(in.byte()));
      handle.write(payload.data(), static_cast<unsigned int>(payload.size()));
      break;
    }
    case 4:
      handle.remove();
      break;
    case 5:
      handle.openNext();
      break;
    case 6:
      for (unsigned int passes = in.byte() * 8; passes > 0; --passes) {
        medium.beginPass();
        PresetMgr::flush();
      }
      break;
    default:
      if (in.byte() < 8) {
        PresetMgr::format();
      }
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static PfSimMedium medium;
  static const bool chosen = (pfUseMedium(&medium), true);
  (void)chosen;
  Input in(data, size);
  resetPresetStore();
  medium.powerUp();
  patchMedium(in, medium);
  {
    PresetMgr handle;
    readAll();
    while (in.more()) {
      operate(in, medium, handle);
    }
    drain(medium);
  }
  const Content stored = readAll();
  resetPresetStore();
  medium.powerUp();
  PresetMgr::service();
  require(readAll() == stored);
  return 0;
}
