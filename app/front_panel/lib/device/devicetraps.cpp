#include "devicetraps.h"

#include <cstdio>

#include "debug.h"

namespace device {

bool WatchedControl::now() const {
  const Family& f = *watched.family;
  int value;
  if (const int* const number = f.number(watched.member)) {
    value = *number;
  } else {
    unsigned char buf[4];
    f.entry(watched.member).get(buf, sizeof buf);
    value = ReadWriteVarMgr::convert(buf, sizeof buf);
  }
  return test == nullptr ? value != 0 : test(watched, value);
}

void WatchedControl::postTx(int err) {
  if (err == 0) {
    delivered = getState() != 0 ? 1 : 0;
  }
  CtrlIntTrapMgr::postTx(err);
}

TrapIndex* TrapTable::table() {
  if (list[0] != nullptr) {
    return rows;
  }
  TrapIndex* row = rows;
  CtrlTrapMgr** manager = list;
  for (WatchedFamily* const w : *this) {
    const Family& f = w->watched;
    const Facts& facts = f.facts();
    CTRL_ASSERT(!f.wrong(!f.isTaken(), "it is watched and not in the device: name it there"));
    CTRL_ASSERT(!f.wrong(facts.id == 0 || facts.id > 0xFFFF,
                         "it is watched, and a trap's id is 1 to 65535: take another"));
    CTRL_ASSERT(!f.wrong(facts.type == DATA_TYPE_STRING, "it is watched and is no number"));
    for (const TrapIndex* r = rows; r != row; ++r) {
      CTRL_ASSERT(!f.wrong(r->m_varid == facts.id, "it is watched twice: join the conditions"));
    }
    *row = {facts.id, static_cast<unsigned int>(row - rows) + 1, facts.dim[0], facts.dim[1], 0};
    ++row;
    for (unsigned int k = 0; k < f.size(); ++k) {
      *manager++ = new (w->controls + k) WatchedControl({&f, k}, w->test);
    }
  }
  return rows;
}

unsigned int TrapTable::numberOf(const Control& control) const {
  const TrapIndex* row = rows;
  for (WatchedFamily* const w : *this) {
    if (&w->watched == control.family) {
      return row->m_base + 2 * (control.subscript(1) * row->m_d1 + control.subscript(0));
    }
    ++row;
  }
  return 0;
}

TrapMeaning TrapTable::meaningOf(unsigned int number) const {
  for (WatchedFamily* const w : *this) {
    for (unsigned int k = 0; k < w->watched.size(); ++k) {
      const Control control = {&w->watched, k};
      const unsigned int no = numberOf(control);
      if (no == number || no + 1 == number) {
        return {control, w->meaning, number != no};
      }
    }
  }
  return {};
}

}  // namespace device
