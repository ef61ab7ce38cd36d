// The frame of a trap manager: asks whether a trap is due, assembles the message, sends it.
//
// A derived class says when a trap is needed; one that says no more reports events with state word
// 1. A manager sends nothing by itself: it is polled (trapupdate.h), and what comes and goes
// between two polls is not noticed. Managers are usually statics of the application, which also
// owns the interface and the body buffer. No lock: all calls on a manager come from the one thread
// that polls. A body buffer without a size, or a size without a buffer, stops the process.
//
// The state word opens the body, in host byte order. A body buffer of 1 to 3 bytes holds only the
// word's first bytes in memory; no manager of the library uses one.
#pragma once

class CmdStsIface;

/// A watched control, without the rule that finds a change. It is not copied: two managers of one
/// control would each report it.
class CtrlEventTrapMgr {
 public:
  /// `id`, `idx`: variable id and index that the messages carry. `buf`: the buffer of `size` bytes
  /// in which a body longer than the state word is assembled, or null and 0.
  /// REQUIRES: `buf` is null exactly when `size` is 0.
  CtrlEventTrapMgr(unsigned int id, unsigned int idx, void* buf, unsigned int size);
  CtrlEventTrapMgr(const CtrlEventTrapMgr&) = delete;
  CtrlEventTrapMgr& operator=(const CtrlEventTrapMgr&) = delete;
  /// Nothing to give back. The manager is in no table that is still polled.
  virtual ~CtrlEventTrapMgr();

  /// Shall a message be sent now? Asked first at every poll, also while there is no interface.
  virtual bool needTrap() = 0;

  /// The state word of the message; 1 unless a class says otherwise.
  virtual unsigned int getState();

  /// Writes up to `size` bytes of further body to `buf` and returns how many. None by default.
  virtual unsigned int getAuxData(void* buf, unsigned int size);

  /// Told what became of a message: 0, or why it was not passed on. Does nothing by default.
  virtual void postTx(int err);

  /// Sets where the messages go; null for nowhere. The interface is held by address.
  void ctrlInitTraps(CmdStsIface* iface) { usb_if = iface; }

  /// One poll. True when a message was due and could not be passed on.
  /// REQUIRES: getAuxData returns no more than it was given.
  bool serviceTraps();

 protected:
  CmdStsIface* usb_if = nullptr;      ///< where the messages go; null for nowhere
  const unsigned int var_id;          ///< variable id of the messages
  const unsigned int index;           ///< variable index of the messages
  void* const trap_data;              ///< the body buffer, or null
  const unsigned int trap_data_size;  ///< its size in bytes
};
