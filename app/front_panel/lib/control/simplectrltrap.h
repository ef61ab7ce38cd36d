// A trap manager for a variable of 4 bytes, with the state buffers built in.
//
// Everything else is as in ctrltrapwrap.h: one polling thread, the variable outlives the manager.
// The manager holds the addresses of its own members, so it is never copied or moved.
#pragma once

#include <cstdint>

#include "ctrltrapwrap.h"

/// Watches an integer or boolean variable.
class CtrlIntTrapMgr : public CtrlTrapMgr {
 public:
  /// As the constructor of CtrlTrapMgr. REQUIRES: `trapData` is null exactly when `trapDataSize`
  /// is 0, and has at least 4 bytes otherwise.
  CtrlIntTrapMgr(unsigned int id, unsigned int idx, const ReadVarMgr& var, void* trapData,
                 unsigned int trapDataSize);
  ~CtrlIntTrapMgr() override;

 private:
  // The two state buffers: value buffers, whatever the host's byte order.
  std::int32_t temp1 = 0;
  std::int32_t temp2 = 0;
  void* state_array[2];  // cppcheck-suppress duplInheritedMember; the base points at this one
};
