#include "jthread.h"

namespace {

// The object whose Thread() the calling thread runs; null on a thread that is no JThread.
thread_local const JThread* own = nullptr;

}  // namespace

// Marks the thread as ended however its body is left. A cancelled thread leaves by unwinding, so
// a destructor is the one place that both ways pass.
class JThread::EndMark {
 public:
  explicit EndMark(JThread& t) : owner(t) {}
  EndMark(const EndMark&) = delete;
  EndMark& operator=(const EndMark&) = delete;
  ~EndMark() {
    // Notified under the lock: the owner may be destroyed as soon as it sees running false.
    std::lock_guard<std::mutex> lock(owner.state);
    owner.running = false;
    owner.changed.notify_all();
  }

 private:
  JThread& owner;
};

JThread::~JThread() {
  Kill();
}

// The address sanitizer does not follow a cancellation, which unwinds frames without its knowledge,
// and would take what they left on the stack for an error here.
void* JThread::run(void* self) {
  JThread& t = *static_cast<JThread*>(self);
  EndMark mark(t);
  own = &t;
  void* const value = t.Thread();
  t.result = value;
  return value;
}

// Waits for the end of the thread. The caller holds control and has seen joinable true.
void JThread::join() {
  pthread_join(thread, nullptr);
  joinable = false;
}

// A thread that asks for itself is answered before the lock: whoever holds that in Kill waits for
// this very thread.
int JThread::Start() {
  if (own == this) {
    return ERR_JTHREAD_ALREADYRUNNING;
  }
  std::lock_guard<std::mutex> one(control);
  if (IsRunning()) {
    return ERR_JTHREAD_ALREADYRUNNING;
  }
  if (joinable) {
    join();
  }
  std::unique_lock<std::mutex> lock(state);
  started = false;
  running = true;
  result = nullptr;
  if (pthread_create(&thread, nullptr, run, this) != 0) {
    running = false;
    return ERR_JTHREAD_CANTSTART;
  }
  joinable = true;
  changed.wait(lock, [this] { return started || !running; });
  return 0;
}

int JThread::Kill() {
  if (own == this) {
    return ERR_JTHREAD_OWNTHREAD;
  }
  std::lock_guard<std::mutex> one(control);
  if (!joinable) {
    return ERR_JTHREAD_NOTRUNNING;
  }
  const bool wasRunning = IsRunning();
  if (wasRunning) {
    pthread_cancel(thread);
  }
  join();
  return wasRunning ? 0 : ERR_JTHREAD_NOTRUNNING;
}

bool JThread::IsRunning() {
  return running;
}

void* JThread::GetReturnValue() {
  return running ? nullptr : result.load();
}

void JThread::ThreadStarted() {
  std::lock_guard<std::mutex> lock(state);
  started = true;
  changed.notify_all();
}
