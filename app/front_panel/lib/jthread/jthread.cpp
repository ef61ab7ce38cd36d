#include "jthread.h"

namespace {

// The object whose Thread() the calling thread runs; null on a thread that is no JThread.
thread_local const JThread* own = nullptr;

}  // namespace

// Marks the thread as ended however its body is left. A cancelled thread leaves by unwinding, so
// a destructor is the one place that both ways pass.
class JThreadState::EndMark {
 public:
  explicit EndMark(JThreadState& s) : owner(s) {}
  EndMark(const EndMark&) = delete;
  EndMark& operator=(const EndMark&) = delete;
  ~EndMark() {
    // Notified under the lock: the owner may be destroyed as soon as it sees running false.
    std::lock_guard<std::mutex> lock(owner.state);
    owner.running = false;
    owner.changed.notify_all();
  }

 private:
  JThreadState& owner;
};

JThread::~JThread() {
  Kill();
}

// The address sanitizer does not follow a cancellation, which unwinds frames without its knowledge,
// and would take what they left on the stack for an error here.
void* JThreadState::run(void* jthread) {
  JThread& t = *static_cast<JThread*>(jthread);
  EndMark mark(t.jthread_state_);
  own = &t;
  void* const value = t.Thread();
  t.jthread_state_.result = value;
  return value;
}

// Waits for the end of the thread. The caller holds control and has seen joinable true.
void JThreadState::join() {
  pthread_join(thread, nullptr);
  joinable = false;
}

// A thread that asks for itself is answered before the lock: whoever holds that in Kill waits for
// this very thread.
int JThread::Start() {
  if (own == this) {
    return ERR_JTHREAD_ALREADYRUNNING;
  }
  JThreadState& my = jthread_state_;
  std::lock_guard<std::mutex> one(my.control);
  if (my.running) {
    return ERR_JTHREAD_ALREADYRUNNING;
  }
  if (my.joinable) {
    my.join();
  }
  std::unique_lock<std::mutex> lock(my.state);
  my.started = false;
  my.running = true;
  my.result = nullptr;
  if (pthread_create(&my.thread, nullptr, JThreadState::run, this) != 0) {
    my.running = false;
    return ERR_JTHREAD_CANTSTART;
  }
  my.joinable = true;
  my.changed.wait(lock, [&my] { return my.started || !my.running; });
  return 0;
}

int JThread::Kill() {
  if (own == this) {
    return ERR_JTHREAD_OWNTHREAD;
  }
  JThreadState& my = jthread_state_;
  std::lock_guard<std::mutex> one(my.control);
  if (!my.joinable) {
    return ERR_JTHREAD_NOTRUNNING;
  }
  const bool wasRunning = my.running;
  if (wasRunning) {
    pthread_cancel(my.thread);
  }
  my.join();
  return wasRunning ? 0 : ERR_JTHREAD_NOTRUNNING;
}

bool JThread::IsRunning() {
  return jthread_state_.running;
}

void* JThread::GetReturnValue() {
  return jthread_state_.running ? nullptr : jthread_state_.result.load();
}

void JThread::ThreadStarted() {
  JThreadState& my = jthread_state_;
  std::lock_guard<std::mutex> lock(my.state);
  my.started = true;
  my.changed.notify_all();
}
