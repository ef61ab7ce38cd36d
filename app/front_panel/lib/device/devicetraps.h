// Watched controls: which traps a device sends, and what their numbers mean.
//
//   bool tooHot(const device::Control&, int degrees) { return degrees > limit; }
//   device::Watch hot(temperatures, tooHot, "too hot");
//   device::Watch muted(mutes, nullptr, "muted");             // holds while it is not 0
//   device::Traps traps(hot, muted);                          // static, behind the watches
//
//   NetDevice net(traps.table(), file.table(), deliver);      // static, in a function that is
//                                                             // called behind Controls::start
//   updateTraps(traps.managers(), &net, true);                // from the periodic loop
//
// A watch is a condition on the present value of each control of a family: the confirmed value of a
// setting, the reading of a reading. Each control has two trap numbers, for no and for yes. One
// thread, the one of the requests. A mistake stops the process in table(), behind a line that names
// it.
#pragma once

#include "devicetable.h"
#include "netdev.h"
#include "simplectrltrap.h"

namespace device {

/// Tells whether `value`, the present one of `control`, is one that a trap tells of.
using WatchFn = bool (*)(const Control& control, int value);

/// One watched control.
class WatchedControl : private ReadVarMgr, public CtrlIntTrapMgr {
 public:
  WatchedControl(const Control& c, WatchFn f)
      : CtrlIntTrapMgr(c.id(), c.index(), *this, nullptr, 0), watched(c), test(f) {}

  /// The control.
  const Control& control() const { return watched; }
  /// The condition now.
  bool now() const;
  /// True once a trap has been delivered.
  bool isDelivered() const { return delivered >= 0; }
  /// What was delivered last; false before the first.
  bool last() const { return delivered == 1; }
  /// True when a trap is due.
  bool isDue() const { return delivered != (now() ? 1 : 0); }
  /// Notes what was delivered.
  void postTx(int err) override;

 private:
  void get(void* buf, unsigned int size) const override { setBufInt(buf, size, now() ? 1 : 0); }
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_BOOL; }

  const Control watched;
  const WatchFn test;
  int delivered = -1;  // nothing yet
};

/// A watched family without its memory; see Watch.
class WatchedFamily {
 public:
  WatchedFamily(const WatchedFamily&) = delete;  ///< Traps holds its address
  WatchedFamily& operator=(const WatchedFamily&) = delete;

  /// The family.
  const Family& family() const { return watched; }
  /// What it means when the condition holds, for people.
  const char* about() const { return meaning; }
  /// Member `k`. REQUIRES: Traps::table has been called.
  WatchedControl& control(unsigned int k) const { return controls[k]; }

 protected:
  WatchedFamily(const Family& f, WatchFn t, const char* m, WatchedControl* c)
      : watched(f), test(t), meaning(m), controls(c) {}
  ~WatchedFamily() = default;

 private:
  friend class TrapTable;
  const Family& watched;
  const WatchFn test;
  const char* const meaning;
  WatchedControl* const controls;
};

/// Watches the controls of a family of the class `F`.
template <class F>
class Watch : public WatchedFamily {
 public:
  static constexpr unsigned int SIZE = F::SIZE;  ///< controls

  /// `watchedFamily`: what is watched. `holdsWhen`: null for "not 0". `meansWhat`: what it means
  /// when it holds, for people.
  Watch(F& watchedFamily, WatchFn holdsWhen, const char* meansWhat)
      : WatchedFamily(watchedFamily, holdsWhen, meansWhat, inner::at(memory)) {
    static_assert(F::KIND != Kind::TEXT && F::KIND != Kind::COMMAND, "a number is watched");
  }

 private:
  inner::Raw<WatchedControl, SIZE> memory;
};

/// What a trap number means.
struct TrapMeaning {
  Control control;              ///< none for a number of no trap
  const char* about = nullptr;  ///< what was told in the watch
  bool state = false;           ///< whether it holds
};

/// The watches without their memory; see Traps.
class TrapTable {
 public:
  TrapTable(const TrapTable&) = delete;  ///< the trap device holds its addresses
  TrapTable& operator=(const TrapTable&) = delete;

  /// The table for a trap device, which numbers it: rows in the order of the watches.
  /// REQUIRES: Controls::start has run.
  TrapIndex* table();
  /// The trap managers for updateTraps, ended by null. REQUIRES: table() has been called.
  CtrlTrapMgr* const* managers() const { return list; }
  /// The watches in the order told.
  WatchedFamily* const* begin() const { return watches; }
  WatchedFamily* const* end() const { return watches + numWatches; }
  /// The number of the trap that says no of a control; the next one says yes. Valid once a trap
  /// device has numbered the table. 0 when the control is not watched.
  unsigned int numberOf(const Control& control) const;
  /// What the trap `number` says.
  TrapMeaning meaningOf(unsigned int number) const;

 protected:
  TrapTable(WatchedFamily** w, unsigned int n, TrapIndex* r, CtrlTrapMgr** m)
      : watches(w), numWatches(n), rows(r), list(m) {}
  ~TrapTable() = default;

 private:
  WatchedFamily* const* const watches;
  const unsigned int numWatches;
  TrapIndex* const rows;
  CtrlTrapMgr** const list;
};

/// The traps of a device: Traps traps(hot, muted).
template <unsigned int WATCHES, unsigned int CONTROLS>
class Traps : public TrapTable {
 public:
  /// Takes the watches in the order in which their traps are numbered.
  template <class... W>
  explicit Traps(W&... w) : TrapTable(all, WATCHES, rows, list), all{&w...} {
    static_assert(sizeof...(W) == WATCHES, "let the compiler count: Traps traps(...)");
  }

 private:
  WatchedFamily* all[WATCHES];
  TrapIndex rows[WATCHES + 1] = {};
  CtrlTrapMgr* list[CONTROLS + 1] = {};
};
template <class... W>
Traps(W&...) -> Traps<sizeof...(W), (0U + ... + W::SIZE)>;

}  // namespace device
