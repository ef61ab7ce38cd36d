#include "trapupdate.h"

#include "debug.h"

bool trap_enable_flag = false;
Timer trap_enable_timer(false);

bool updateTraps(CtrlTrapMgr* const* traps, NetDevice* pDev, bool trap_enable) {
  CTRL_ASSERT(traps != nullptr);
  CTRL_ASSERT(pDev != nullptr);
  return updateTrapsThrough(traps, *pDev->getCmdStsIface(), trap_enable);
}

bool updateTrapsThrough(CtrlTrapMgr* const* traps, CmdStsIface& iface, bool trap_enable) {
  CTRL_ASSERT(traps != nullptr);
  if (!trap_enable) {
    return false;
  }
  bool failed = false;
  for (; *traps != nullptr; ++traps) {
    (*traps)->ctrlInitTraps(&iface);
    if ((*traps)->serviceTraps()) {
      failed = true;
    }
  }
  return failed;
}

bool get_trap_flag_status() {
  return true;
}
