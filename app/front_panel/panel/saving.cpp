#include "saving.h"

#include "ctrlsys.h"
#include "varmgr.h"

std::mutex settingsLock;

namespace {

unsigned int waiting = 0;  // sets in the confirm queue

}  // namespace

SavedControl::SavedControl(CtrlReadWrite& e, const int& confirmed)
    : CtrlReadWrite(e.getVarID(), e.getIndex()), entry(e), number(&confirmed), text(nullptr) {}

SavedControl::SavedControl(CtrlReadWrite& e, const char* confirmed)
    : CtrlReadWrite(e.getVarID(), e.getIndex()), entry(e), number(nullptr), text(confirmed) {}

CTRL_DATA_TYPE SavedControl::getType() const {
  return entry.getType();
}

void SavedControl::get(void* buf, unsigned int size) {
  const std::lock_guard<std::mutex> lock(settingsLock);
  if (text != nullptr) {
    ReadVarMgr::setBufStr(buf, size, text, false);
  } else {
    ReadVarMgr::setBufInt(buf, size, *number);
  }
}

bool SavedControl::validate(const void* buf, unsigned int size) const {
  return entry.validate(buf, size);
}

int SavedControl::set(const void* buf, unsigned int size) {
  return entry.set(buf, size);
}

int SavedControl::confirm() {
  const std::lock_guard<std::mutex> lock(settingsLock);
  return entry.confirm();
}

int setControl(unsigned int id, unsigned int index, const void* data, unsigned int size) {
  const int result = ctrlDoValidateSet(id, index, data, size);
  waiting += result == CTRL_ERR_SUCCESS ? 1 : 0;
  return result;
}

unsigned int waitingSets() {
  return waiting;
}

unsigned int confirmSettings() {
  const std::lock_guard<std::mutex> lock(settingsLock);
  ctrlDoConfirm();
  const unsigned int confirmed = waiting;
  waiting = 0;
  return confirmed;
}
