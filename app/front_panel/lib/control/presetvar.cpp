#include "presetvar.h"

PresetFieldVar::PresetFieldVar(ReadWriteVarMgr& v) : var(v) {}

void PresetFieldVar::init() {
  PresetField::init();
  var.init();
}

int PresetFieldVar::reset() {
  return startVarMgrReset(var);
}

int PresetFieldVar::commit() const {
  return commitVarMgr(var);
}

void PresetFieldVar::endCommit() {
  var.endXaction();
}

int PresetFieldVar::setVar(const void* p, unsigned int size) {
  return startVarMgrSet(var, p, size) == 0 ? 0 : -2;
}
