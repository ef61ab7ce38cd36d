#include "ctrleventwrap.h"

#include <cstring>

#include "cmdstsiface.h"
#include "debug.h"

CtrlEventTrapMgr::CtrlEventTrapMgr(unsigned int id, unsigned int idx, void* buf, unsigned int size)
    : var_id(id), index(idx), trap_data(buf), trap_data_size(size) {
  CTRL_ASSERT_ABOUT((trap_data == nullptr) == (trap_data_size == 0), AssertSubject::CONTROL, id,
                    idx);
}

CtrlEventTrapMgr::~CtrlEventTrapMgr() = default;

unsigned int CtrlEventTrapMgr::getState() {
  return 1;
}

unsigned int CtrlEventTrapMgr::getAuxData(void* /*buf*/, unsigned int /*size*/) {
  return 0;
}

void CtrlEventTrapMgr::postTx(int /*err*/) {}

bool CtrlEventTrapMgr::serviceTraps() {
  const bool due = needTrap();
  if (usb_if == nullptr || !due) {
    return false;
  }
  const unsigned int state = getState();
  static_assert(sizeof state == 4, "the state word on the wire is 32 bits wide");
  const void* body = &state;
  unsigned int length = sizeof state;
  if (trap_data_size > 0) {
    const unsigned int copy = trap_data_size < sizeof state ? trap_data_size : sizeof state;
    std::memcpy(trap_data, &state, copy);
    const unsigned int room = trap_data_size - copy;
    const unsigned int aux = getAuxData(static_cast<char*>(trap_data) + copy, room);
    CTRL_ASSERT_ABOUT(aux <= room, AssertSubject::CONTROL, var_id, index);
    body = trap_data;
    length = copy + aux;
  }
  const int err = usb_if->sendStatus(var_id, index, body, length);
  postTx(err);
  return err != 0;
}
