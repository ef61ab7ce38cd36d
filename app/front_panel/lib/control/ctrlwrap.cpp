#include "ctrlwrap.h"

#include <cstdio>

#include "debug.h"

CtrlRead::CtrlRead(unsigned int varid, unsigned int ind) : varId(varid), index(ind) {
  const unsigned int length =
      static_cast<unsigned int>(std::snprintf(name, sizeof name, "CV-%u-I-%u", varid, ind));
  CTRL_ASSERT_ABOUT(length < sizeof name, AssertSubject::CONTROL, varid, ind);
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

CtrlSaved::CtrlSaved(CtrlReadWrite& e, const int& confirmed, std::mutex& guard)
    : CtrlReadWrite(e.getVarID(), e.getIndex()),
      entry(e),
      number(&confirmed),
      text(nullptr),
      lock(guard) {}

CtrlSaved::CtrlSaved(CtrlReadWrite& e, const char* confirmed, std::mutex& guard)
    : CtrlReadWrite(e.getVarID(), e.getIndex()),
      entry(e),
      number(nullptr),
      text(confirmed),
      lock(guard) {
  CTRL_ASSERT_ABOUT(confirmed != nullptr, AssertSubject::CONTROL, varId, index);
}

CTRL_DATA_TYPE CtrlSaved::getType() const {
  const CTRL_DATA_TYPE type = entry.getType();
  CTRL_ASSERT_ABOUT((type == DATA_TYPE_STRING) == (text != nullptr), AssertSubject::CONTROL, varId,
                    index);
  return type;
}

void CtrlSaved::get(void* buf, unsigned int size) {
  const std::lock_guard<std::mutex> held(lock);
  if (number != nullptr) {
    ReadVarMgr::setBufInt(buf, size, *number);
  } else {
    ReadVarMgr::setBufStr(buf, size, text, false);
  }
}

bool CtrlSaved::validate(const void* buf, unsigned int size) const {
  return entry.validate(buf, size);
}

int CtrlSaved::set(const void* buf, unsigned int size) {
  return entry.set(buf, size);
}

int CtrlSaved::confirm() {
  const std::lock_guard<std::mutex> held(lock);
  return entry.confirm();
}
