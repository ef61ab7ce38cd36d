// Tells when the body of a thread has ended, for threads whose Kill may do no more than cancel.
//
// The object is a static, usable until the process is gone. Nothing here allocates or stops the
// process.
#pragma once

#include <sys/types.h>

#include <atomic>

#include "noncopyable.h"

/// What others can know of a thread.
class ThreadLife : public Noncopyable {
 public:
  /// Stands first in the body of the thread, so that its end is the end of the body, also by
  /// cancellation. A body that begins while an earlier one runs waits for that one's end.
  class Body : public Noncopyable {
   public:
    /// `life` is told that the thread lives.
    explicit Body(ThreadLife& life);
    /// And that it has ended.
    ~Body();

   private:
    ThreadLife& life;
  };

  /// Waits until no body runs. Any thread; on the thread itself it returns at once.
  void waitForEnd() const;

  /// True while a body runs in this process: a child has a copy of the object, but no thread. Any
  /// thread.
  bool isAlive() const;

 private:
  std::atomic<pid_t> process{0};  // in which a body runs; 0 for none
};
