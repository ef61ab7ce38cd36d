// A trap manager that reports each change of a variable, and its value once at the start.
//
// It reads the variable into one of two state buffers at every poll and compares them. The other
// buffer holds the value last delivered; the two change places only when a message was passed on,
// so a message that failed is due again at the next poll, with the value of that time, and a
// variable that has gone back to the value last delivered owes nothing. The buffers, like the
// variable, belong to the application or to the derived class and live as long as the manager;
// they are value buffers, most significant byte first. One thread; a missing buffer or an empty
// one stops the process.
#pragma once

#include "ctrleventwrap.h"
#include "varmgr.h"

/// Watches a ReadVarMgr. The state word is the value's last 4 bytes, as the number they spell.
class CtrlTrapMgr : public CtrlEventTrapMgr {
 public:
  /// `trap`: the variable. `state_buf`: array of two pointers to buffers of `state_buf_size` bytes;
  /// the pointers may be filled in after construction. `data`, `data_size`: as in
  /// CtrlEventTrapMgr. REQUIRES: `state_buf` is not null; `state_buf_size` is above 0; a
  /// `data` buffer has at least `state_buf_size` bytes.
  CtrlTrapMgr(unsigned int id, unsigned int idx, const ReadVarMgr& trap, void** state_buf,
              unsigned int state_buf_size, void* data, unsigned int data_size);
  ~CtrlTrapMgr() override;

  /// Reads the variable. True when the reading has to be sent.
  /// REQUIRES: the buffer for it is there.
  bool needTrap() override;

  /// The number that the last 4 bytes of the reading spell, or all of fewer bytes.
  unsigned int getState() override;

  /// Takes the reading as delivered when `err` is 0.
  void postTx(int err) override;

 protected:
  const ReadVarMgr& trap_var;     ///< the variable
  void** const state_array;       ///< the two state buffers
  const unsigned int state_size;  ///< bytes of each
  unsigned int cur = 0;           ///< the buffer that receives the next reading
  bool force_send = true;         ///< nothing has been delivered yet
  bool need_send = false;         ///< result of the latest needTrap; false once its message is sent
};
