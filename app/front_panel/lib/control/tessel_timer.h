// One free-running tick counter for the whole library, and polled timeouts on it.
//
// A tick is 1 ms and the counter is 32 bits wide, so it wraps every 49.7 days. Timeouts hold across
// the wrap, but one that ends before it and is first polled behind it reads as running until the
// counter comes round: poll every timeout as often as its end matters. Timer_thread advances the
// counter from the wall clock; the application first calls Timer_thread::Instance()->Init().
// sysTime and cb are plain words: any thread may read them, and without the timer thread a test may
// drive the counter. The library reaches them through loadShared and storeShared alone, as code
// that sets them beside a running thread does. A Timer has no lock and belongs to one thread at a
// time. Nothing here allocates or stops the process.
#pragma once

#include <jthread.h>

#include "noncopyable.h"

/// Part of the interface; nothing in the library computes with it. A tick is 1 ms all the same.
constexpr unsigned int TICKS_IN_MS = 10;
/// Part of the interface; nothing in the library computes with it.
constexpr unsigned int TICKS_IN_US = 1000;

/// The word `shared`, which another thread may be changing at this moment.
template <class T>
T loadShared(const volatile T& shared) {
  return __atomic_load_n(&shared, __ATOMIC_SEQ_CST);
}

/// Stores `value` in `shared`, a word that another thread may be reading at this moment.
template <class T>
void storeShared(volatile T& shared, T value) {
  __atomic_store_n(&shared, value, __ATOMIC_SEQ_CST);
}

/// A timeout that is polled.
class Timer {
 public:
  /// Length of a tick in microseconds. A constant expression, so that the static initialisers of
  /// other modules can divide by it.
  static constexpr unsigned int tickTime = 1000;
  /// Interrupt level at which CBTimer locks its list.
  static unsigned short level;
  /// Called by the tick loop on every pass, on the timer thread; null for none.
  static void (*cb)();
  /// The tick counter: the low 32 bits of the milliseconds since the epoch. One writer.
  static volatile unsigned int sysTime;

  /// A timer that is not running. `r` true makes it repeat: seen expired, it re-arms itself.
  Timer(bool r) : repeat(r) {}
  /// Nothing to give back.
  virtual ~Timer() = default;

  /// Arms the timer, also a running one, to expire `timeout` ticks from now.
  void setTimeout(unsigned int timeout);

  /// Polls the timer: true when it is not running or its time has come. A timer that does not
  /// repeat stops with that. A repeating one stays in phase and skips the periods it has missed;
  /// with a period of 0 it reads expired at every poll.
  bool isTimeoutExpired();

  /// True from setTimeout until the timer is stopped or, not repeating, has been seen expired.
  bool isRunning() const { return running; }

  /// Stops the timer. It then reads as expired.
  void clearTimeout() { running = false; }

  /// The tick counter.
  static unsigned int getSysTime() { return loadShared(sysTime); }

  /// Ticks since the counter value `since`; across a wrap of the counter one tick less.
  static unsigned int getDiffTime(unsigned int since);

  /// Part of the interface; not defined in this library.
  static void open(unsigned short unit);

  /// The loop of the timer thread: sets the counter, calls cb, sleeps 2 ms. Never returns; the
  /// sleep is its cancellation point, and a running callback is not cancelled.
  [[noreturn]] static void tick();

 private:
  friend class Timer_thread;
  static bool timer_read_clock_();
  void timer_arm_(unsigned int from);

  unsigned int start = 0;
  unsigned int end = 0;
  unsigned int length = 0;
  bool overflow = false;  // the end lies behind the counter's next wrap
  bool running = false;
  const bool repeat;
};

/// Reports the divider settings of the board's hardware timer.
void timerGetParms(bool& clkDiv, unsigned int& prescale, unsigned int& ref);

/// The thread that runs Timer::tick.
class Timer_thread : public JThread, public Noncopyable {
 public:
  /// The one instance, made at the first call and stopped at process exit.
  static Timer_thread* Instance();

  /// Stops the thread.
  ~Timer_thread() override;

  /// Starts the thread, without a result. A thread that cannot start leaves the counter at 0.
  void Init();

  /// Starts the thread and says so on standard output; the counter is set when this returns.
  /// Returns what JThread::Start returns.
  int Start();

  /// Ends the thread and says so on standard output. When it returns, no callback runs and the
  /// counter stands still; from a callback nothing is waited for. Returns what JThread::Kill
  /// returns.
  int Stop();

  /// The body of the thread: runs Timer::tick.
  void* Thread() override;

 private:
  Timer_thread() = default;
};
