// The pass that polls all trap managers.
//
// The application calls it from its own loop, at the rate at which it wants changes to be noticed;
// the library has no thread or timer for it. One thread only; a pass blocks for as long as its
// sends take. Nothing is limited or delayed after a failure: the pace is the application's. A
// null table or device stops the process.
#pragma once

#include "bitmanip.h"  // BYTE_MASK, which belongs to this interface too
#include "ctrltrapwrap.h"
#include "netdev.h"
#include "tessel_timer.h"

/// Part of the interface; nothing in the library reads or writes it.
extern bool trap_enable_flag;
/// Part of the interface; never armed.
extern Timer trap_enable_timer;

/// Polls the managers of `traps`, an array that a null pointer ends, in array order; their
/// messages go to `pDev`. True when at least one message could not be passed on; the pass serves
/// the others all the same. `trap_enable` false touches nothing and returns false: what changes
/// meanwhile is noticed later, against the value last delivered.
/// REQUIRES: `traps` and `pDev` are not null.
bool updateTraps(CtrlTrapMgr* const* traps, NetDevice* pDev, bool trap_enable);

/// The same pass for an application whose messages go to a status interface of its own.
/// REQUIRES: `traps` is not null.
bool updateTrapsThrough(CtrlTrapMgr* const* traps, CmdStsIface& iface, bool trap_enable);

/// Always true; trap_enable_flag plays no part.
bool get_trap_flag_status();
