#include "ctrltrapwrap.h"

#include <cstring>

#include "bytes.h"
#include "debug.h"

CtrlTrapMgr::CtrlTrapMgr(unsigned int id, unsigned int idx, const ReadVarMgr& trap,
                         void** state_buf, unsigned int state_buf_size, void* data,
                         unsigned int data_size)
    : CtrlEventTrapMgr(id, idx, data, data_size),
      trap_var(trap),
      state_array(state_buf),
      state_size(state_buf_size) {
  const AssertSubject about(AssertSubject::CONTROL, id, idx);
  CTRL_ASSERT(state_array != nullptr);
  CTRL_ASSERT(state_size > 0);
  CTRL_ASSERT(trap_data == nullptr || trap_data_size >= state_size);
}

CtrlTrapMgr::~CtrlTrapMgr() = default;

// Two states, by force_send. The reference is the other buffer: the value last delivered.
//
//   state    | a poll reads    | message | passed on                           | not passed on
//   Forced   | anything        | yes     | Tracking, the reading is reference  | Forced
//   Tracking | the reference   | no      |                                     |
//   Tracking | something else  | yes     | Tracking, the reading is reference  | no change

bool CtrlTrapMgr::needTrap() {
  CTRL_ASSERT(cur < 2);
  CTRL_ASSERT_ABOUT(state_array[cur] != nullptr, AssertSubject::CONTROL, var_id, index);
  trap_var.get(state_array[cur], state_size);
  need_send = force_send || std::memcmp(state_array[0], state_array[1], state_size) != 0;
  return need_send;
}

unsigned int CtrlTrapMgr::getState() {
  const unsigned int last = state_size < 4 ? state_size : 4;
  const unsigned char* const bytes = static_cast<const unsigned char*>(state_array[cur]);
  return getBigEndian(bytes + state_size - last, last);
}

void CtrlTrapMgr::postTx(int err) {
  if (err == 0) {
    force_send = false;
    need_send = false;
    cur = 1 - cur;
  }
}
