#include "platform/dispatch/MainLoop.h"
#include "tests/support/MainLoop.h"

#include <local/platform/DispatchQueue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvl::DispatchQueue;
using kvl::Semaphore;
using kvl::dispatch::serveMainLoopUntilFree;

// Stands between the main context and its sleeping, and says how long it wanted to sleep.
class WatchedPolls {
 public:
  explicit WatchedPolls(std::function<void()> beforeEach) : beforeEach_(std::move(beforeEach)) {
    present = this;
    g_main_context_set_poll_func(nullptr, [](GPollFD* files, guint count, gint timeout) {
      present->timeouts.push_back(timeout);
      present->beforeEach_();
      return g_poll(files, count, timeout);
    });
  }
  ~WatchedPolls() { g_main_context_set_poll_func(nullptr, nullptr); }
  WatchedPolls(const WatchedPolls&) = delete;
  WatchedPolls& operator=(const WatchedPolls&) = delete;

  std::vector<int> timeouts;

 private:
  static inline WatchedPolls* present = nullptr;
  const std::function<void()> beforeEach_;
};

TEST(MainLoopTest, TakesAFreeSemaphoreWithoutServingAnything) {
  bool served = false;
  DispatchQueue::main()->async([&] { served = true; });
  Semaphore semaphore(1);
  serveMainLoopUntilFree(semaphore);
  EXPECT_FALSE(semaphore.tryWait());
  EXPECT_FALSE(served);
  kvltest::runPendingMainBlocks();
}

TEST(MainLoopTest, BlocksGoBeforeWhatTheHostDoesWhenItIsIdle) {
  kvltest::runPendingMainBlocks();
  static std::vector<std::string> order;
  order.clear();
  g_idle_add(
      [](gpointer) -> gboolean {
        order.emplace_back("idle");
        return G_SOURCE_REMOVE;
      },
      nullptr);
  DispatchQueue::main()->async([] { order.emplace_back("block"); });
  while (order.size() < 2) g_main_context_iteration(nullptr, TRUE);
  EXPECT_EQ(order, (std::vector<std::string>{"block", "idle"}));
}

TEST(MainLoopTest, SleepsWithoutLimitAndIsWokenByTheSignal) {
  kvltest::runPendingMainBlocks();
  Semaphore semaphore;
  WatchedPolls polls([&] { semaphore.signal(); });
  serveMainLoopUntilFree(semaphore);
  EXPECT_EQ(polls.timeouts, std::vector{-1});
}

TEST(MainLoopTest, SignalOfAnotherThreadWakesIt) {
  kvltest::runPendingMainBlocks();
  Semaphore semaphore;
  std::atomic<bool> asleep = false;
  WatchedPolls polls([&] {
    asleep = true;
    asleep.notify_all();
  });
  std::jthread signaller([&] {
    asleep.wait(false);
    semaphore.signal();
  });
  serveMainLoopUntilFree(semaphore);
  EXPECT_FALSE(semaphore.tryWait());
}

TEST(MainLoopTest, SignalOfAnotherSemaphoreOnlyMakesItLookAgain) {
  kvltest::runPendingMainBlocks();
  Semaphore semaphore;
  Semaphore other;
  int polled = 0;
  WatchedPolls polls([&] { (++polled < 3 ? other : semaphore).signal(); });
  serveMainLoopUntilFree(semaphore);
  EXPECT_EQ(polled, 3);
}

TEST(MainLoopTest, NoSignalIsLostHoweverTheThreadsMeet) {
  constexpr int kRounds = 2000;
  Semaphore there;
  Semaphore back;
  std::jthread partner([&] {
    for (int i = 0; i < kRounds; ++i) {
      there.wait();
      back.signal();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    there.signal();
    serveMainLoopUntilFree(back);
  }
}

TEST(MainLoopTest, SemaphoreMayGoAwayAsSoonAsItIsTaken) {
  for (int i = 0; i < 200; ++i) {
    auto semaphore = std::make_unique<Semaphore>();
    std::jthread signaller([&raw = *semaphore] { raw.signal(); });
    serveMainLoopUntilFree(*semaphore);
    semaphore.reset();
  }
}

TEST(MainLoopTest, WaitsMayNest) {
  std::vector<int> order;
  Semaphore outer;
  Semaphore inner;
  DispatchQueue::main()->async([&] {
    outer.signal();
    DispatchQueue::main()->async([&] { inner.signal(); });
    serveMainLoopUntilFree(inner);
    order.push_back(1);
  });
  serveMainLoopUntilFree(outer);
  order.push_back(2);
  EXPECT_EQ(order, (std::vector{1, 2}));
}

// A thread that owns the main context, as a host that runs its main loop elsewhere does.
class ForeignOwner {
 public:
  ForeignOwner() : thread_([this] { own(); }) { owned_.wait(); }
  ForeignOwner(const ForeignOwner&) = delete;
  ForeignOwner& operator=(const ForeignOwner&) = delete;
  ~ForeignOwner() { release_.signal(); }

  void letGo() { release_.signal(); }

 private:
  void own() {
    ASSERT_NE(g_main_context_acquire(nullptr), FALSE);
    owned_.signal();
    release_.wait();
    g_main_context_release(nullptr);
  }

  Semaphore owned_;
  Semaphore release_;
  std::jthread thread_;
};

TEST(MainLoopTest, WaitsForTheSignalAloneWhileAnotherThreadOwnsTheLoop) {
  Semaphore semaphore;
  const ForeignOwner owner;
  std::jthread signaller([&] { semaphore.signal(); });
  serveMainLoopUntilFree(semaphore);
  EXPECT_FALSE(semaphore.tryWait());
}

TEST(MainLoopTest, ServesTheLoopOnceItsOwnerLetsGo) {
  Semaphore semaphore;
  ForeignOwner owner;
  DispatchQueue::main()->async([&] { semaphore.signal(); });
  std::jthread releaser([&] { owner.letGo(); });
  serveMainLoopUntilFree(semaphore);
  EXPECT_FALSE(semaphore.tryWait());
}

}  // namespace
