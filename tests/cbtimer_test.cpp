// Timers with a callback: the walk over the list, changes to it from callbacks, and the lock.
#include "cbtimer.h"

#include <atomic>
#include <thread>

#include "fatal.h"
#include "mcf5200.h"
#include "random.h"

// The status register of a board, in place of the library's empty operations.
namespace {
unsigned short statusRegister = 0;
std::vector<unsigned short>* levelsSet = nullptr;  // noted while somebody looks
}  // namespace

unsigned short spl(const unsigned short s) {
  if (levelsSet != nullptr) {
    levelsSet->push_back(s);
  }
  return 0;
}

unsigned short getsr() {
  return statusRegister;
}

namespace {

std::string fired;  // one letter for each callback, in order
char actingLetter;  // the callback that does something beside that
void (*act)();      // what it does

template <char LETTER>
void callback() {
  fired += LETTER;
  if (LETTER == actingLetter) {
    act();
  }
}

std::unique_ptr<CBTimer> a, b, c;

class CbTimerTest : public testing::Test {
 protected:
  ~CbTimerTest() override { a.reset(), b.reset(), c.reset(); }

  // Hooks a, b and c, so that the walk meets c first, and makes all of them due.
  void hookThree(bool repeat) {
    Timer::sysTime = 100;
    for (auto* t : {&a, &b, &c}) {
      *t = std::make_unique<CBTimer>(repeat);
      (*t)->setTimeout(10);
    }
    a->setCallback(callback<'a'>);
    b->setCallback(callback<'b'>);
    c->setCallback(callback<'c'>);
    Timer::sysTime = 110;
  }

  std::string walk(unsigned int time = Timer::sysTime) {
    Timer::sysTime = time;
    fired.clear();
    cbTimerISR();
    return fired;
  }
};

TEST_F(CbTimerTest, EachTimerFiresOncePerPeriodAndTheLatestHookedFirst) {
  a = std::make_unique<CBTimer>(false);
  Timer::cb = callback<'o'>;
  a.reset();  // never hooked
  EXPECT_EQ(Timer::cb, callback<'o'>);
  Timer::cb = nullptr;
  hookThree(true);
  EXPECT_EQ(Timer::cb, cbTimerISR);
  c->clearTimeout();
  EXPECT_EQ(walk(), "ba");  // a stopped timer is never due
  EXPECT_EQ(walk(), "");
  c->setTimeout(5);
  a->setCallback(callback<'x'>);  // replaces the callback, keeps the place
  EXPECT_EQ(walk(143), "cbx");    // missed periods count once
  EXPECT_EQ(walk(150), "cbx");    // the phase is kept
  EXPECT_FATAL(b->setCallback(nullptr), "cfn != nullptr");
  c.reset();
  b->clearCallback();
  b->clearCallback();
  EXPECT_EQ(walk(170), "x");
  EXPECT_EQ(Timer::cb, cbTimerISR);
  a->clearCallback();
  EXPECT_EQ(Timer::cb, nullptr) << "the walk is installed while the list has members";
}

TEST_F(CbTimerTest, ACallbackMayUnhookOrDestroyAnyTimer) {
  const struct {
    char acting;
    void (*action)();
    const char *firstWalk, *secondWalk;
  } cases[] = {
      {'b', [] { b.reset(); }, "cb", "ca"},
      {'c', [] { b.reset(); }, "ca", "ca"},
      {'b', [] { a.reset(), c.reset(); }, "cb", "b"},
      {'b', [] { b->clearCallback(), b->setCallback(callback<'B'>); }, "cb", "Bca"},
      // A walk inside the walk serves the rest and destroys the timer of the outer one.
      {'c', [] { actingLetter = 'a', act = [] { c.reset(); }, cbTimerISR(); }, "cba", "ba"},
  };
  for (const auto& each : cases) {
    hookThree(true);
    actingLetter = each.acting;
    act = each.action;
    EXPECT_EQ(walk(), each.firstWalk);
    actingLetter = 0;
    EXPECT_EQ(walk(120), each.secondWalk) << "after " << each.firstWalk;
  }
}

TEST(IntrptLock, RaisesTheLevelAndNeverLowersIt) {
  const struct {
    unsigned short level, status;
    std::vector<unsigned short> set;
  } cases[] = {
      {0, 0x2000, {0x2000}}, {3, 0x2004, {0x2300, 0x2004}}, {3, 0x2300, {0x2300}},
      {3, 0x2700, {0x2700}}, {7, 0x0615, {0x2700, 0x0615}}, {9, 0, {0x2100, 0}},
  };
  for (const auto& each : cases) {
    std::vector<unsigned short> levels;
    statusRegister = each.status;
    levelsSet = &levels;
    {
      IntrptLock lock(each.level);
      lock.lock();
    }
    levelsSet = nullptr;
    EXPECT_EQ(levels, each.set) << each.level << " over " << each.status;
  }
  IntrptLock twice(0);
  twice.lock();
  twice.lock();
  twice.unlock();
  twice.unlock();
  std::thread(cbTimerISR).join();  // the list is free again
}

// The callbacks of one thread's timers. A callback that runs after its timer was unhooked would be
// seen here; an unguarded access is seen by the thread sanitizer.
bool hooked[3];
std::atomic<bool> strayCall{false};
std::atomic<int> steadyCalls{0};

template <unsigned int THREAD>
void hookAndUnhook() {
  Random random(THREAD);
  for (int i = 0; i < 3000; ++i) {
    CBTimer timer(random.oneIn(2));
    IntrptLock lock(Timer::level);
    lock.lock();
    hooked[THREAD] = true;
    timer.setCallback([] { strayCall = strayCall || !hooked[THREAD]; });
    lock.unlock();
    timer.setTimeout(random.below(3));
    if (timer.isRunning() && !timer.isTimeoutExpired() && random.oneIn(2)) {
      timer.clearTimeout();
    }
    timer.clearCallback();
    hooked[THREAD] = false;  // no callback may be running now
  }
}

TEST(CbTimerThreads, UnhookingWaitsForTheCallbackAndTheListStaysWhole) {
  CBTimer steady(true);
  steady.setCallback([] { ++steadyCalls; });
  steady.setTimeout(1);
  std::atomic<bool> done{false};
  std::thread walker([&done] {
    while (!done) {
      storeShared(Timer::sysTime, Timer::getSysTime() + 1);
      if (void (*const call)() = loadShared(Timer::cb)) {
        call();
      }
    }
  });
  std::thread users[] = {std::thread(hookAndUnhook<0>), std::thread(hookAndUnhook<1>),
                         std::thread(hookAndUnhook<2>)};
  for (std::thread& user : users) {
    user.join();
  }
  const int before = steadyCalls;
  while (steadyCalls == before) {  // the member that never left is still served
  }
  done = true;
  walker.join();
  EXPECT_FALSE(strayCall);
}

}  // namespace
