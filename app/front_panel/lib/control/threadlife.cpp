#include "threadlife.h"

#include <unistd.h>

#include <chrono>
#include <thread>
#include <type_traits>

static_assert(std::is_trivially_destructible_v<ThreadLife>, "a thread may end behind exit");

namespace {

// The life whose body the calling thread runs; null on a thread that has none.
thread_local const ThreadLife* own = nullptr;

}  // namespace

ThreadLife::Body::Body(ThreadLife& l) : life(l) {
  life.waitForEnd();
  own = &life;
  life.process = getpid();
}

ThreadLife::Body::~Body() {
  own = nullptr;
  life.process = 0;  // the last that the thread does with its object
}

bool ThreadLife::isAlive() const {
  return process == getpid();
}

// A look once a millisecond: a thread is waited for once or twice in the life of a process, and a
// condition to be told by would have to outlive the last static object.
void ThreadLife::waitForEnd() const {
  while (isAlive() && own != this) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
