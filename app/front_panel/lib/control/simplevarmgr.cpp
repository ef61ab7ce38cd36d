#include "simplevarmgr.h"

#include <cstring>

ReadWriteVarMgrSimpleStr::ReadWriteVarMgrSimpleStr(RefreshMgr& r, void* g, void* buf,
                                                   unsigned int size, const bounds_t* b,
                                                   const char* i)
    // A buffer of no bytes holds not even a terminator, so it counts as none.
    : ReadWriteVarMgrStr(size == 0 ? nullptr : buf, size, b),
      refMgr(r),
      initStr(i),
      initStrLen(i == nullptr ? 0 : static_cast<unsigned int>(std::strlen(i))),
      glob(static_cast<char*>(g)) {}

ReadWriteVarMgrSimpleStr::~ReadWriteVarMgrSimpleStr() {
  refMgr.freeId(id);
}

bool ReadWriteVarMgrSimpleStr::refresh() {
  if (str == nullptr || glob == nullptr) {
    return false;
  }
  // The usual case: the global's text fits the working buffer, terminator included.
  if (std::memchr(glob, 0, len + 1) != nullptr) {
    return refreshStr(refMgr, id, str, glob);
  }
  // str[len] is zero and stays so: comparing and copying the first len bytes cuts the text.
  return refreshVar(refMgr, id, str, glob, len);
}

void ReadWriteVarMgrSimpleStr::init() {
  set(initStr, initStrLen);
}

void ReadWriteVarMgrSimpleStr::commit() const {
  if (str == nullptr || glob == nullptr) {
    return;
  }
  std::memmove(glob, str, std::strlen(str) + 1);
  refMgr.setRefresh();
}
