// A thread as a class: derive from JThread, give it a Thread(), call Start().
//
// Stand-in for the JThread library over POSIX threads, with the operations that this system uses.
// The object belongs to the application and outlives its thread: a class that derives from JThread
// calls Kill in its own destructor, because the thread may still be inside its Thread() when the
// base is destroyed. All operations may be called from any thread, also from the thread itself,
// whose own Start and Kill are refused at once. Kill cancels and then waits for the end, so it
// waits for ever when Thread() never reaches a cancellation point (a wait, or pthread_testcancel),
// or when that thread waits in Kill for the caller. Nothing here stops the process.
//
// A derived class may use every name but those of the operations below: run, join, state and the
// like are its own, or mean what they mean outside.
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

class JThread;

/// What a JThread keeps, outside of it so that its names stay free for derived classes.
class JThreadState {
  friend class JThread;
  class EndMark;
  [[gnu::no_sanitize_address]] static void* run(void* jthread);
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

/// A thread. Derived classes supply its body. It is not copied: there is one thread to one object.
class JThread {
 public:
  /// No thread yet.
  JThread() = default;
  JThread(const JThread&) = delete;
  JThread& operator=(const JThread&) = delete;

  /// Ends the thread, if it is running, as Kill does.
  virtual ~JThread();

  /// Starts a thread that runs Thread(), and returns once that has called ThreadStarted() or
  /// has ended. Returns 0, or ERR_JTHREAD_ALREADYRUNNING, also to the thread itself, or
  /// ERR_JTHREAD_CANTSTART.
  int Start();

  /// Cancels the thread and waits for its end. Returns 0; ERR_JTHREAD_NOTRUNNING, with nothing
  /// done, when the thread was never started or has ended; or ERR_JTHREAD_OWNTHREAD, with nothing
  /// done, to the thread itself.
  int Kill();

  /// The body of the thread, which runs it; its result is for GetReturnValue. It calls
  /// ThreadStarted() when it is up.
  virtual void* Thread() = 0;

  /// Tells whether the thread is between its Start and its end.
  bool IsRunning();

  /// What the last Thread() returned; null while it runs, when it was cancelled, and before the
  /// first Start.
  void* GetReturnValue();

 protected:
  /// Lets Start return. For Thread(), once what the caller of Start relies on is done.
  void ThreadStarted();

 private:
  friend class JThreadState;
  JThreadState jthread_state_;
};
