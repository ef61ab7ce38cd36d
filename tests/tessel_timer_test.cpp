// The tick counter, polled timeouts on it, and the thread that drives it.
//
// The thread's clock and sleep are replaced, so that the test decides what time it is and the
// thread makes one pass at a time.
#include "tessel_timer.h"

#include <gtest/gtest.h>
#include <semaphore.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>

#include "cancelling_jthread.h"
#include "random.h"

namespace {

sem_t passBegins;
sem_t passEnded;
std::optional<timeval> clockNow;  // none: the clock fails

}  // namespace

extern "C" int gettimeofday(timeval* now, void*) noexcept {
  *now = clockNow.value_or(timeval{});
  return clockNow ? 0 : -1;
}

extern "C" int usleep(useconds_t microseconds) {
  EXPECT_EQ(microseconds, 2000U);
  sem_post(&passEnded);
  while (sem_wait(&passBegins) != 0) {
  }
  return 0;
}

namespace {

constexpr unsigned long long WRAP = 1ULL << 32;

// A timeout in 64-bit time, where nothing wraps.
struct Model {
  bool isTimeoutExpired(unsigned long long now) {
    if (!running || now < end) {
      return !running;
    }
    running = repeat;
    if (running && length > 0) {
      end += ((now - end) / length + 1) * length;
    }
    return true;
  }

  const bool repeat;
  bool running = false;
  unsigned long long end = 0;
  unsigned long long length = 0;
};

TEST(TimerTest, AgreesWithUnwrappedTimeThroughManyWraps) {
  Random random(1);
  const unsigned int lengths[] = {0, 1, 2, 10, 1000, 0x200, 0x7FFFFFFF, 0xFFFF0000};
  for (int round = 0; round < 2000; ++round) {
    const bool repeat = random.oneIn(2);
    unsigned long long now = WRAP - random.below(300);
    Timer timer(repeat);
    Model model{repeat};
    for (int i = 0; i < 60; ++i) {
      Timer::sysTime = static_cast<unsigned int>(now);
      if (random.oneIn(12)) {
        model.length = lengths[random.below(std::size(lengths))];
        model.end = now + model.length;
        model.running = true;
        timer.setTimeout(static_cast<unsigned int>(model.length));
      } else if (random.oneIn(40)) {
        timer.clearTimeout();
        model.running = false;
      }
      ASSERT_EQ(timer.isTimeoutExpired(), model.isTimeoutExpired(now)) << round << " " << i;
      ASSERT_EQ(timer.isRunning(), model.running);
      // Time goes on in small steps, or to the end of a long period. The last tick before a wrap is
      // not passed without a poll, and from a poll soon behind the wrap it may be the next.
      const unsigned long long left = model.end > now ? model.end - now : 1;
      const unsigned long long step = (now & 0xFFFFFFFF) < 40 && random.oneIn(4) ? WRAP
                                      : random.oneIn(4) ? left - random.below(2)
                                                        : random.below(40);
      const unsigned long long lastTick = now | 0xFFFFFFFF;
      now = now < lastTick ? std::min(now + step, lastTick) : now + step;
    }
  }
}

TEST(TimerTest, DifferencesLoseATickAcrossTheWrap) {
  const unsigned int cases[][3] = {{3, 5, 2}, {5, 5, 0}, {5, 3, 0xFFFFFFFD}, {0xFFFFFFFF, 0, 0}};
  for (const auto& [since, now, difference] : cases) {
    Timer::sysTime = now;
    EXPECT_EQ(Timer::getDiffTime(since), difference);
    EXPECT_EQ(Timer::getSysTime(), now);
  }
  bool clkDiv = true;
  unsigned int prescale, ref;
  timerGetParms(clkDiv, prescale, ref);
  EXPECT_TRUE(!clkDiv && prescale == 225 && ref == 160);
}

std::atomic<int> calls{0};

TEST(TimerThreadTest, EachPassSetsTheCounterFromTheClockAndCallsBack) {
  const std::tuple<std::optional<timeval>, unsigned int, int> passes[] = {
      {timeval{4294967, 295999}, 0xFFFFFFFF, 1},
      {timeval{4294967, 296000}, 0, 2},
      {timeval{1700000000, 123456}, 3487918203, 3},
      {std::nullopt, 3487918203, 3}};  // a pass without a time calls nobody
  Timer_thread* const thread = Timer_thread::Instance();
  testing::internal::CaptureStdout();
  clockNow = timeval{1, 999};
  thread->Init();
  EXPECT_EQ(Timer::getSysTime(), 1000U) << "timeouts can be armed at once";
  sem_wait(&passEnded);
  Timer::cb = [] { ++calls; };
  for (const auto& [clock, time, callsSoFar] : passes) {
    clockNow = clock;
    sem_post(&passBegins);
    sem_wait(&passEnded);
    EXPECT_EQ(Timer::getSysTime(), time);
    EXPECT_EQ(calls, callsSoFar);
  }
  EXPECT_LT(thread->Start(), 0) << "it runs already";
  EXPECT_EQ(thread->Stop(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Starting the Timer thread\nStarting the Timer thread\nStopping the Timer thread\n");
  clockNow = timeval{2, 0};
  // A callback is the application's code: Stop waits for its end rather than unwinding it, unless
  // it is the callback that calls.
  static sem_t reached;
  Timer::cb = [] {
    sem_post(&reached);
    timespec pause{0, 20000000};
    nanosleep(&pause, nullptr);
    pthread_testcancel();
    Timer_thread::Instance()->Stop();
    ++calls;
  };
  EXPECT_EQ(thread->Start(), 0);
  sem_wait(&reached);
  thread->Stop();
  EXPECT_EQ(calls, 4);
}

}  // namespace
