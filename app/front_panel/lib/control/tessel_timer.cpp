#include "tessel_timer.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>

#include "threadlife.h"

unsigned short Timer::level = 0;
void (*Timer::cb)() = nullptr;
volatile unsigned int Timer::sysTime = 0;

static_assert(sizeof Timer::sysTime == 4, "durations are counted to the wrap of 32 bits");

namespace {

ThreadLife threadLife;

}  // namespace

void Timer::timer_arm_(unsigned int from) {
  start = from;
  end = from + length;
  overflow = 0xFFFFFFFFU - from < length;
}

void Timer::setTimeout(unsigned int timeout) {
  length = timeout;
  timer_arm_(getSysTime());
  running = true;
}

bool Timer::isTimeoutExpired() {
  if (!running) {
    return true;
  }
  if (length == 0) {
    running = repeat;
    return true;
  }
  const unsigned int cur = getSysTime();
  if (overflow) {
    if (cur >= start) {
      return false;
    }
    overflow = false;
  }
  if (cur < end) {
    return false;
  }
  if (!repeat) {
    running = false;
  } else {
    timer_arm_(end + (cur - end) / length * length);
  }
  return true;
}

unsigned int Timer::getDiffTime(unsigned int since) {
  const unsigned int now = getSysTime();
  return since > now ? (0xFFFFFFFFU - since) + now : now - since;
}

// Sets the counter; false when the system has no time.
bool Timer::timer_read_clock_() {
  timeval tv;
  if (gettimeofday(&tv, nullptr) != 0) {
    return false;
  }
  storeShared(sysTime,
              static_cast<unsigned int>(static_cast<unsigned long long>(tv.tv_sec) * 1000U +
                                        static_cast<unsigned long long>(tv.tv_usec) / 1000U));
  return true;
}

void Timer::tick() {
  for (;;) {
    if (timer_read_clock_()) {
      if (void (*const call)() = loadShared(cb)) {
        // A callback is the application's code and need not be ready to be unwound.
        int previous;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
        call();
        pthread_setcancelstate(previous, nullptr);
      }
    }
    usleep(2000);
  }
}

void timerGetParms(bool& clkDiv, unsigned int& prescale, unsigned int& ref) {
  clkDiv = false;
  prescale = 225;
  ref = 160;
}

Timer_thread* Timer_thread::Instance() {
  static Timer_thread instance;
  return &instance;
}

Timer_thread::~Timer_thread() {
  Stop();
}

void Timer_thread::Init() {
  Start();
}

int Timer_thread::Start() {
  std::puts("Starting the Timer thread");
  return JThread::Start();
}

int Timer_thread::Stop() {
  std::puts("Stopping the Timer thread");
  const int result = JThread::Kill();
  threadLife.waitForEnd();
  return result;
}

void* Timer_thread::Thread() {
  const ThreadLife::Body body(threadLife);
  pthread_testcancel();
  // In front of ThreadStarted: a timeout that is armed once Start has returned counts from now, and
  // not from 0, which would let it expire with the first pass.
  Timer::timer_read_clock_();
  ThreadStarted();
  Timer::tick();
}
