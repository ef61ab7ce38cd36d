// A thread as a class: derive from JThread, give it a Thread(), call Start().
//
// Stand-in for the JThread library over POSIX threads, with the operations that this system uses.
// Start, Kill, IsRunning and GetReturnValue may be called from any thread; Kill may not be called
// from the thread that it is to end. A class that derives from JThread calls Kill in its own
// destructor, because the thread may still be inside its Thread() when the base is destroyed.
// Kill cancels and then waits for the end, so a Thread() that never reaches a cancellation point
// (see pthreads(7)) makes Kill wait for ever.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

/// Start: the thread is running already.
constexpr int ERR_JTHREAD_ALREADYRUNNING = -1;
/// Kill: there is no thread to end.
constexpr int ERR_JTHREAD_NOTRUNNING = -2;
/// Start: the system cannot make another thread.
constexpr int ERR_JTHREAD_CANTSTART = -3;
/// Kill: called from the thread itself.
constexpr int ERR_JTHREAD_OWNTHREAD = -4;

class JThread {
 public:
  JThread() = default;
  JThread(const JThread&) = delete;
  JThread& operator=(const JThread&) = delete;

  /// Ends the thread, if it is running, as Kill does.
  virtual ~JThread();

  /// Starts a thread that runs Thread(), and returns once that has called ThreadStarted() or
  /// has ended. Returns 0, or ERR_JTHREAD_ALREADYRUNNING or ERR_JTHREAD_CANTSTART.
  int Start();

  /// Cancels the thread and waits for its end. Returns 0; ERR_JTHREAD_NOTRUNNING, with nothing
  /// done, when the thread was never started or has ended; or ERR_JTHREAD_OWNTHREAD.
  int Kill();

  /// The body of the thread.
  virtual void* Thread() = 0;

  /// Tells whether the thread is between its Start and its end.
  bool IsRunning();

  /// What the last Thread() returned; null while it runs, when it was cancelled, and before the
  /// first Start.
  void* GetReturnValue();

 protected:
  /// The first thing that Thread() calls: lets Start return.
  void ThreadStarted();

 private:
  class EndMark;
  [[gnu::no_sanitize_address]] static void* run(void* self);
  void join();

  std::mutex control;  // one Start or Kill at a time
  std::mutex state;    // held where started or running changes, for the waiting Start
  std::condition_variable changed;
  std::atomic<bool> started{false};
  std::atomic<bool> running{false};
  std::atomic<void*> result{nullptr};
  bool joinable = false;  // guarded by control
  pthread_t thread{};
};
