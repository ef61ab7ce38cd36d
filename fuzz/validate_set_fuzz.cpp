// Value buffers of any bytes and lengths through validate, set, confirm and get.
//
// The input is a run of requests: one byte for the control, one for the length and the way, the
// value's bytes. Whatever arrives, a value in force lies within its bounds, an accepted one is read
// as it was sent, and no byte behind a buffer is touched, which the sanitizer sees because every
// buffer has its exact size on the heap.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "debug.h"
#include "registry.h"
#include "simplectrlwrapvar.h"
#include "simplevarmgr.h"

namespace {

const bounds_t GAPPED[] = {{-20, 10}, {20, 30}, BOUNDS_END};

const bounds_t COMMANDS[] = {{0, 3}, BOUNDS_END};
const unsigned int MEMBERS[] = {4};

class Command : public SimpleCtrlCmd {
 public:
  using SimpleCtrlCmd::SimpleCtrlCmd;
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  int confirm() override {
    CTRL_ASSERT(val >= 0 && val <= 3);
    return 0;
  }
};

struct Device : Registry {
  Device() { start({&clip, &wrap, &on, &text, &command}); }

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

  CtrlReadWrite* family[4];
  CtrlReadWrite* commands[1];
  bool familyFirst = true;
  bool commandFirst = true;
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
  SimpleCtrlReadWriteVarMgr clip{1, 0, clipVar, familyFirst, family, 4, MEMBERS, 1, nullptr};
  SimpleCtrlReadWriteVarMgr wrap{1, 1, wrapVar, familyFirst, family, 4, MEMBERS, 1, nullptr};
  SimpleCtrlReadWriteVarMgr on{1, 2, onVar, familyFirst, family, 4, MEMBERS, 1, nullptr};
  SimpleCtrlReadWriteVarMgr text{1, 3, textVar, familyFirst, family, 4, MEMBERS, 1, nullptr};
  Command command{2, 0, COMMANDS, commandFirst, commands, 1, nullptr, 0, nullptr, RANGE_WRAP};
};

// Whether a get of `size` bytes tells what a set of `size` bytes has asked for.
bool isSame(unsigned int varid, unsigned int varidx, const char* got, const char* sent,
            unsigned int size) {
  if (varid == 2) {
    return std::all_of(got, got + size, [](char c) { return c == 0; });
  }
  if (varidx < 3) {
    return ReadWriteVarMgr::convert(got, size) == ReadWriteVarMgr::convert(sent, size);
  }
  return size == 0 || std::strncmp(got, sent, std::min(size - 1, 8U)) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Device device;
  const std::uint8_t* const end = data + size;
  while (end - data >= 2 && end - data - 2 >= data[1] % 16) {
    const unsigned int which = data[0];
    const unsigned int way = data[1];
    const unsigned int length = way % 16;
    const std::unique_ptr<char[]> exact(new char[length]);
    std::memcpy(exact.get(), data + 2, length);
    const char* const value = (way & 0x80) != 0 ? nullptr : exact.get();
    data += 2 + length;
    // Also ids, indices and subscripts that are not there.
    const unsigned int varid = which % 4;
    const unsigned int varidx = which / 4 % 8;
    const int set = ctrlDoValidateSet(varid, varidx, value, length);
    if (which >= 128) {
      ctrlDoConfirm();
    }
    const std::unique_ptr<char[]> out(new char[length]);
    const int got = ctrlDoGet(varid, varidx, length, out.get());
    CTRL_ASSERT(set != CTRL_ERR_SUCCESS || got == CTRL_ERR_SUCCESS);
    CTRL_ASSERT(set != CTRL_ERR_SUCCESS || value != nullptr || length == 0);
    CTRL_ASSERT(set != CTRL_ERR_SUCCESS || which < 128 || value == nullptr ||
                isSame(varid, varidx, out.get(), value, length));
    // The preset file's way: no check in front of the set.
    CtrlReadWrite* const entry = (way & 0x40) != 0 ? ctrlGetRWEntry(varid, varidx) : nullptr;
    if (entry != nullptr) {
      entry->set(value, length);
      entry->confirm();
    }
    device.check();
  }
  ctrlDoConfirm();  // the registry's queue outlives the device
  return 0;
}
