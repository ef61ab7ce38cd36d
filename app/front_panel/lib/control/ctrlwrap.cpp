#include "ctrlwrap.h"

#include <cstdio>

#include "debug.h"

CtrlRead::CtrlRead(unsigned int varid, unsigned int ind) : varId(varid), index(ind) {
  const int length = std::snprintf(name, sizeof name, "CV-%u-I-%u", varid, ind);
  CTRL_ASSERT(length > 0 && length < static_cast<int>(sizeof name));
}

CtrlReadVarMgr::CtrlReadVarMgr(unsigned int varid, unsigned int ind, const ReadVarMgr& readvar)
    : CtrlRead(varid, ind), rvar(readvar) {}

CTRL_DATA_TYPE CtrlReadVarMgr::getType() const {
  return rvar.getType();
}

void CtrlReadVarMgr::get(void* buf, unsigned int size) {
  rvar.get(buf, size);
}

CtrlReadWriteVarMgr::CtrlReadWriteVarMgr(unsigned int varid, unsigned int ind,
                                         ReadWriteVarMgr& readwritevar)
    : CtrlReadWrite(varid, ind), rwvar(readwritevar) {}

CTRL_DATA_TYPE CtrlReadWriteVarMgr::getType() const {
  return rwvar.getType();
}

void CtrlReadWriteVarMgr::get(void* buf, unsigned int size) {
  getCurVarMgrVal(rwvar, buf, size);
}

void CtrlReadWriteVarMgr::init() {
  rwvar.init();
}

bool CtrlReadWriteVarMgr::validate(const void* buf, unsigned int size) const {
  if (!rwvar.startXaction()) {
    return false;
  }
  rwvar.refresh();
  return rwvar.validate(buf, size);
}

int CtrlReadWriteVarMgr::set(const void* buf, unsigned int size) {
  rwvar.set(buf, size);
  return 0;
}

int CtrlReadWriteVarMgr::confirm() {
  return commitVarMgr(rwvar);
}
