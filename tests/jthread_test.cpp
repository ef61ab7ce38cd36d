// Threads as classes: start, end, restart, and what a call at the wrong time returns.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <jthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

std::atomic<bool> refuseThreads{false};

}  // namespace

// Stands before the C library's function, also for the library under test.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) noexcept {
  static const auto create =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return refuseThreads ? EAGAIN : create(thread, attributes, body, argument);
}

namespace {

class Worker : public JThread {
 public:
  explicit Worker(std::function<void*(Worker&)> b) : body(std::move(b)) {}
  ~Worker() override { Kill(); }
  void* Thread() override { return body(*this); }
  using JThread::ThreadStarted;

 private:
  const std::function<void*(Worker&)> body;
};

std::atomic<int> unwound{0};  // how often sleepForEver was

void* sleepForEver(Worker& worker) {
  const std::shared_ptr<void> local(nullptr, [](void*) { ++unwound; });
  worker.ThreadStarted();
  for (;;) {
    pause();
  }
}

TEST(JThreadTest, StartReturnsOnceTheThreadIsUpAndKillOnceItIsGone) {
  std::atomic<int> ups{0};
  Worker worker([&ups](Worker& self) {
    usleep(20000);
    ++ups;
    return sleepForEver(self);
  });
  refuseThreads = true;
  EXPECT_EQ(worker.Start(), ERR_JTHREAD_CANTSTART);
  refuseThreads = false;
  for (int i = 1; i <= 3; ++i) {
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.Kill(), ERR_JTHREAD_NOTRUNNING);
    EXPECT_EQ(worker.Start(), 0);
    EXPECT_EQ(ups, i);
    EXPECT_TRUE(worker.IsRunning());
    EXPECT_EQ(worker.Start(), ERR_JTHREAD_ALREADYRUNNING);
    EXPECT_EQ(worker.Kill(), 0);
    EXPECT_EQ(unwound, i) << "the body's locals are destroyed";
    EXPECT_EQ(worker.GetReturnValue(), nullptr);
  }
  EXPECT_EQ(Worker(sleepForEver).Start(), 0);
  EXPECT_EQ(unwound, 4) << "no thread is left behind a destroyed object";
}

TEST(JThreadTest, AThreadThatEndsLeavesItsResultAndCanStartAgain) {
  // It never says that it has started: Start returns all the same.
  Worker worker([](Worker& self) { return &self; });
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(worker.Start(), 0);
    while (worker.IsRunning()) {
      usleep(1000);
    }
    EXPECT_EQ(i == 1 ? worker.Kill() : ERR_JTHREAD_NOTRUNNING, ERR_JTHREAD_NOTRUNNING);
    EXPECT_EQ(worker.GetReturnValue(), &worker);
  }
}

// Also while another thread waits in Kill for its end, which would otherwise never come.
TEST(JThreadTest, AThreadCannotStartOrKillItself) {
  std::atomic<int> rounds{0};
  Worker worker([&rounds](Worker& self) -> void* {
    self.ThreadStarted();
    for (;; rounds >= 100 ? pthread_testcancel() : (void)++rounds) {
      EXPECT_EQ(self.Kill(), ERR_JTHREAD_OWNTHREAD);
      EXPECT_EQ(self.Start(), ERR_JTHREAD_ALREADYRUNNING);
    }
  });
  EXPECT_EQ(worker.Start(), 0);
  EXPECT_EQ(worker.Kill(), 0);
  EXPECT_EQ(rounds, 100);
}

TEST(JThreadTest, StartAndKillFromManyThreads) {
  Worker worker(sleepForEver);
  std::atomic<int> starts{0};
  std::atomic<int> kills{0};
  unwound = 0;
  const auto startAndKill = [&] {
    for (int n = 0; n < 100; ++n) {
      starts += worker.Start() == 0 ? 1 : 0;
      worker.IsRunning();
      worker.GetReturnValue();
      kills += worker.Kill() == 0 ? 1 : 0;
    }
  };
  std::thread callers[] = {std::thread(startAndKill), std::thread(startAndKill),
                           std::thread(startAndKill), std::thread(startAndKill)};
  for (std::thread& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(starts, kills);
  EXPECT_EQ(unwound, starts);
}

}  // namespace
