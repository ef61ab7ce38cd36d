// Any content of the medium, then any run of handle operations and service passes.
//
// The input is a run of steps, a byte for the kind and its arguments: first patches of an erased
// medium, then, behind a step of kind 0, operations on the store. The simulated part stops the
// process when the store breaks a rule of the medium. Whatever the medium held, the store comes
// up, does not stop the process, and what a drained flush has acknowledged is there after a
// restart.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "store_rig.h"

namespace {

struct Input {
  unsigned int byte() {
    left -= left > 0 ? 1 : 0;
    return left == 0 ? 0 : *data++;
  }
  unsigned int word() {
    const unsigned int high = byte();
    return high << 8 | byte();
  }

  const std::uint8_t* data;
  std::size_t left;  // the bytes, and one more
};

void patchMedium(Input& in, NorArray& image) {
  for (unsigned int count = in.byte(); count != 0; count = in.byte()) {
    unsigned int addr = in.word() % FLASH_AREA_SIZE;
    for (unsigned int i = 0; i < count % 32 && addr < FLASH_AREA_SIZE; ++i, ++addr) {
      image.bytes[addr] = static_cast<unsigned char>(in.byte());
    }
  }
}

void operate(Input& in, StoreRig& rig, PresetMgr& handle) {
  const unsigned int kind = in.byte() % 8;
  const unsigned short type = static_cast<unsigned short>(in.byte() % 8);
  if (kind < 2) {
    if (handle.openFirst(type, PM_WRITE) != ERR_OK) {
      handle.openNew(type);
    }
  } else if (kind < 4) {
    const unsigned int size = in.word() % 9000;
    const std::string payload(size, static_cast<char>(in.byte()));
    handle.write(payload.data(), size);
  } else if (kind == 4) {
    handle.remove();
  } else if (kind == 5) {
    handle.openNext();
  } else if (kind == 6) {
    for (unsigned int passes = in.byte() * 8; passes > 0; --passes) {
      rig.pass();
    }
  } else if (in.byte() < 8) {
    PresetMgr::format();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static StoreRig rig;
  Input in = {data, size + 1};
  const std::unique_ptr<NorArray> image = std::make_unique<NorArray>();
  patchMedium(in, *image);
  rig.restartOn(*image);
  {
    PresetMgr handle;
    while (in.left > 1) {
      operate(in, rig, handle);
    }
    rig.drain();
  }
  const Content stored = rig.lasting();
  rig.restart();
  CTRL_ASSERT(rig.lasting() == stored);
  return 0;
}
