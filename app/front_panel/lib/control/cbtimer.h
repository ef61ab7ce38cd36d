// Timers with a callback, served by the tick loop, and the lock that guards their list.
//
// A CBTimer belongs to its owner. setCallback hooks it to one list of the process, which does not
// own it; clearCallback and the destructor unhook it. Callbacks run on the timer thread. One
// recursive lock of the process, IntrptLock, guards the list and every hooked timer, so all
// operations may be called from any thread, also from a callback, on its own timer and on others;
// once clearCallback or the destructor has returned on another thread, the callback is not running
// and will not run. So a callback should be short, and may not wait for a thread that uses
// CBTimers. A null callback is a fatal assertion. Nothing here allocates.
#pragma once

#include "mcf5200.h"
#include "tessel_timer.h"

/// A timer's callback.
typedef void (*pTimerCallbackFn_t)();

/// Raises the interrupt level, and keeps every other thread out that locks as well.
///
/// The lock is one for the whole process, whatever the level, and recursive. An object of this
/// class belongs to one thread, and is not copied: it holds the lock.
class IntrptLock {
 public:
  /// Prepares to lock at interrupt level `level`, 0 to 7.
  IntrptLock(unsigned short level) { setLevel(level); }
  IntrptLock(const IntrptLock&) = delete;
  IntrptLock& operator=(const IntrptLock&) = delete;
  /// Unlocks, if it is locked.
  ~IntrptLock();

  /// Changes the level that the next lock() raises to.
  void setLevel(unsigned short level) {
    lvlBits = static_cast<unsigned short>((static_cast<unsigned int>(level) << 8) & 0x700U);
  }

  /// Waits for the lock, then raises the interrupt level; a higher one is left as it is. Locking a
  /// second time only sets the level again.
  void lock();

  /// Puts back the status register that lock() found, and gives the lock up if it is held.
  void unlock();

 private:
  unsigned short lvlBits = 0;  // the level in status-register position
  unsigned short newSR = 0;    // status set by lock
  unsigned short curSR = 0;    // status found by lock
  bool held = false;
};

/// A timeout that calls a function when it is over.
///
/// The operations of Timer stand here again under the lock, since the walker polls the timer on
/// the timer thread. They must not be called through a reference to Timer while it is hooked. It is
/// not copied: the list holds its address.
class CBTimer : public Timer {
 public:
  /// A timer that is not running and has no callback. `r` true makes it repeat.
  CBTimer(bool r) : Timer(r) {}
  CBTimer(const CBTimer&) = delete;
  CBTimer& operator=(const CBTimer&) = delete;
  /// Unhooks the timer. A class derived from this one, whose callback uses its members, calls
  /// clearCallback in its own destructor.
  ~CBTimer() override;

  /// Hooks the timer, if it is not hooked, at the head of the list, and sets its callback. It does
  /// not arm the timer. REQUIRES: `cfn` is not null.
  void setCallback(pTimerCallbackFn_t cfn);

  /// Unhooks the timer, which may be done already, and forgets its callback. It does not stop the
  /// timer. When the list is empty then, the tick loop is relieved of walking it.
  void clearCallback();

  /// As Timer::setTimeout: arms the timer to expire `timeout` ticks from now.
  void setTimeout(unsigned int timeout);
  /// As Timer::isTimeoutExpired. An expiry seen here is not seen by the walker.
  bool isTimeoutExpired();
  /// As Timer::isRunning.
  bool isRunning() const;
  /// As Timer::clearTimeout: stops the timer. It stays hooked.
  void clearTimeout();

 private:
  friend void cbTimerISR();
  friend class CBTimerWalk;

  static CBTimer* list;

  CBTimer* next = nullptr;
  pTimerCallbackFn_t fn = nullptr;
};

/// Walks the list, the latest hooked timer first, and calls the callback of each timer that is
/// running and has expired. A timer that does not repeat fires once and stays hooked. A callback
/// that unhooks or destroys its own timer ends the walk: the rest is served at the next one.
/// setCallback installs it as Timer::cb.
void cbTimerISR();
