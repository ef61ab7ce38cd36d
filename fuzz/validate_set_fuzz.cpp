// Value buffers of any bytes and lengths through validate, set, confirm and get.
//
// The input is a run of requests: one byte for the control, one for the length, the value's bytes.
// Whatever arrives, a value in force lies within its bounds, and no byte behind a buffer is
// touched, which the sanitizer sees because every buffer has its exact size on the heap.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "ctrlwrap.h"
#include "debug.h"
#include "registry.h"
#include "simplevarmgr.h"

namespace {

const bounds_t GAPPED[] = {{-20, 10}, {20, 30}, BOUNDS_END};

struct Device : Registry {
  Device() {
    start({&clip, &wrap, &on, &text});
    ctrl_register_rw(1, 4, 1, family);
  }

  void check() const {
    for (const int value : {clipGlobal, wrapGlobal}) {
      CTRL_ASSERT((value >= -20 && value <= 10) || (value >= 20 && value <= 30));
    }
    CTRL_ASSERT(onGlobal == 0 || onGlobal == 1);
    CTRL_ASSERT(std::memchr(textGlobal, 0, sizeof textGlobal) != nullptr);
    for (const char* c = textGlobal; *c != 0; ++c) {
      CTRL_ASSERT(*c >= ' ' && *c <= '~');
    }
  }

  int clipGlobal = 0;
  int wrapGlobal = 0;
  int onGlobal = 0;
  char textGlobal[9] = {};
  char textWork[9];
  RefreshMgr group;
  ReadWriteVarMgrSimpleInt clipVar{clipGlobal, group, 0, GAPPED, RANGE_CLIP};
  ReadWriteVarMgrSimpleInt wrapVar{wrapGlobal, group, 0, GAPPED, RANGE_WRAP};
  ReadWriteVarMgrSimpleBool onVar{onGlobal, group, ReadWriteVarMgrBool::OFF, RANGE_CLIP};
  ReadWriteVarMgrSimpleStr textVar{
      group, textGlobal, textWork, sizeof textWork, ReadWriteVarMgrStr::BOUNDS_PRINTABLE, "unit"};
  CtrlReadWriteVarMgr clip{1, 0, clipVar}, wrap{1, 1, wrapVar}, on{1, 2, onVar},
      text{1, 3, textVar};
  CtrlReadWrite* family[4] = {&clip, &wrap, &on, &text};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Device device;
  const std::uint8_t* const end = data + size;
  while (end - data >= 2 && end - data - 2 >= data[1] % 16) {
    const unsigned int which = data[0];
    const unsigned int length = data[1] % 16;
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[length]);
    std::memcpy(exact.get(), data + 2, length);
    data += 2 + length;
    // Also ids, indices and subscripts that are not there.
    const unsigned int varid = which % 4;
    const unsigned int varidx = which / 4 % 8;
    const int set = ctrlDoValidateSet(varid, varidx, exact.get(), length);
    const std::unique_ptr<char[]> out(new char[length]);
    const int got = ctrlDoGet(varid, varidx, length, out.get());
    CTRL_ASSERT(set != CTRL_ERR_SUCCESS || got == CTRL_ERR_SUCCESS);
    if (which >= 128) {
      ctrlDoConfirm();
    }
    device.check();
  }
  return 0;
}
