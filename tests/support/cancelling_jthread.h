// A JThread whose Kill cancels and does not wait for the end, as the system's own thread class may.
//
// Included in one source file of a test, it takes the place of the stand-in, also for the library.
// An installed JThread is left as it is.
#pragma once

#include <jthread.h>

#ifdef CONTROL_JTHREAD_STAND_IN

// The address sanitizer takes it for a fault that the class is there twice.
extern "C" const char* __asan_default_options() {
  return "detect_odr_violation=0";
}

JThread::~JThread() {
  Kill();
}

void* JThreadState::run(void* jthread) {
  return static_cast<JThread*>(jthread)->Thread();
}

int JThread::Start() {
  std::unique_lock<std::mutex> lock(jthread_state_.state);
  if (jthread_state_.running) {
    return ERR_JTHREAD_ALREADYRUNNING;
  }
  jthread_state_.started = false;
  if (pthread_create(&jthread_state_.thread, nullptr, JThreadState::run, this) != 0) {
    return ERR_JTHREAD_CANTSTART;
  }
  pthread_detach(jthread_state_.thread);
  jthread_state_.running = true;
  jthread_state_.changed.wait(lock, [this] { return jthread_state_.started.load(); });
  return 0;
}

int JThread::Kill() {
  const std::lock_guard<std::mutex> lock(jthread_state_.state);
  if (!jthread_state_.running) {
    return ERR_JTHREAD_NOTRUNNING;
  }
  jthread_state_.running = false;
  return pthread_cancel(jthread_state_.thread);
}

bool JThread::IsRunning() {
  return jthread_state_.running;
}

void* JThread::GetReturnValue() {
  return nullptr;
}

void JThread::ThreadStarted() {
  const std::lock_guard<std::mutex> lock(jthread_state_.state);
  jthread_state_.started = true;
  jthread_state_.changed.notify_all();
}

#endif
