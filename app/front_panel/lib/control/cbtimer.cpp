#include "cbtimer.h"

#include <mutex>
#include <new>

#include "debug.h"
#include "mcf5200.h"

namespace {

constexpr unsigned int SR_LEVEL = 0x0700;
constexpr unsigned int SR_SUPERVISOR = 0x2000;

// Never destroyed: timers are often statics, and unhook when the process ends.
std::recursive_mutex& listMutex() {
  alignas(std::recursive_mutex) static unsigned char storage[sizeof(std::recursive_mutex)];
  static std::recursive_mutex* const mutex = new (storage) std::recursive_mutex;
  return *mutex;
}

class Locked {
 public:
  Locked() : guard(Timer::level) { guard.lock(); }

 private:
  IntrptLock guard;
};

}  // namespace

IntrptLock::~IntrptLock() {
  if (held) {
    unlock();
  }
}

void IntrptLock::lock() {
  if (!held) {
    listMutex().lock();
    held = true;
    curSR = getsr();
  }
  if ((curSR & SR_LEVEL) < lvlBits) {
    newSR = static_cast<unsigned short>(lvlBits | SR_SUPERVISOR);
    spl(newSR);
  }
}

void IntrptLock::unlock() {
  spl(curSR);
  if (held) {
    held = false;
    listMutex().unlock();
  }
}

CBTimer* CBTimer::list = nullptr;

// A walk over the list, known to the operations that change it. A callback may walk again, so
// walks form a stack.
class CBTimerWalk {
 public:
  CBTimerWalk() : at(CBTimer::list), outer(innermost) { innermost = this; }
  CBTimerWalk(const CBTimerWalk&) = delete;
  CBTimerWalk& operator=(const CBTimerWalk&) = delete;
  ~CBTimerWalk() { innermost = outer; }

  static CBTimerWalk* innermost;
  CBTimer* at;  // the timer being served; null once it is no longer hooked
  CBTimerWalk* const outer;
};

CBTimerWalk* CBTimerWalk::innermost = nullptr;

CBTimer::~CBTimer() {
  // A timer that is not hooked leaves Timer::cb, which may be the application's own, alone.
  const Locked locked;
  if (fn != nullptr) {
    clearCallback();
  }
}

void CBTimer::setCallback(pTimerCallbackFn_t cfn) {
  CTRL_ASSERT(cfn != nullptr);
  const Locked locked;
  const CBTimer* member = list;
  while (member != nullptr && member != this) {
    member = member->next;
  }
  if (member == nullptr) {
    next = list;
    list = this;
  }
  fn = cfn;
  if (loadShared(cb) == nullptr) {
    storeShared(cb, cbTimerISR);
  }
}

void CBTimer::clearCallback() {
  const Locked locked;
  CBTimer** link = &list;
  while (*link != nullptr && *link != this) {
    link = &(*link)->next;
  }
  if (*link == this) {
    *link = next;
  }
  for (CBTimerWalk* walk = CBTimerWalk::innermost; walk != nullptr; walk = walk->outer) {
    if (walk->at == this) {
      walk->at = nullptr;
    }
  }
  fn = nullptr;
  next = nullptr;
  if (list == nullptr) {
    storeShared<void (*)()>(cb, nullptr);
  }
}

void CBTimer::setTimeout(unsigned int timeout) {
  const Locked locked;
  Timer::setTimeout(timeout);
}

bool CBTimer::isTimeoutExpired() {
  const Locked locked;
  return Timer::isTimeoutExpired();
}

bool CBTimer::isRunning() const {
  const Locked locked;
  return Timer::isRunning();
}

void CBTimer::clearTimeout() {
  const Locked locked;
  Timer::clearTimeout();
}

void cbTimerISR() {
  const Locked locked;
  CBTimerWalk walk;
  while (CBTimer* const timer = walk.at) {
    if (timer->Timer::isRunning() && timer->Timer::isTimeoutExpired()) {
      timer->fn();  // a member of the list has one
    }
    if (walk.at != nullptr) {
      walk.at = walk.at->next;
    }
  }
}
