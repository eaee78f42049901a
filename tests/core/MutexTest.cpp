#include <local/platform/Mutex.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kvl::Condition;
using kvl::Mutex;
using kvl::MutexLock;
using kvl::RecursiveMutex;
using kvl::RecursiveMutexLock;

struct Flag {
  Mutex mutex;
  Condition changed;
  bool raised KVL_GUARDED_BY(mutex) = false;
  int seen KVL_GUARDED_BY(mutex) = 0;

  void waitUntilRaised() {
    MutexLock lock(mutex);
    while (!raised) changed.wait(lock);
    ++seen;
  }
};

TEST(MutexTest, ExcludesOtherThreads) {
  struct {
    Mutex mutex;
    int count KVL_GUARDED_BY(mutex) = 0;
  } shared;
  const auto add = [&shared] {
    for (int i = 0; i < 10'000; ++i) {
      MutexLock lock(shared.mutex);
      ++shared.count;
    }
  };
  {
    std::jthread one(add);
    std::jthread other(add);
  }
  MutexLock lock(shared.mutex);
  EXPECT_EQ(shared.count, 20'000);
}

TEST(MutexTest, ALockLetsGoInBetween) {
  Flag flag;
  MutexLock lock(flag.mutex);
  lock.unlock();
  std::thread([&flag] {
    MutexLock own(flag.mutex);
    flag.raised = true;
  }).join();
  lock.lock();
  EXPECT_TRUE(flag.raised);
}

TEST(MutexTest, ALockThatLetGoIsDestroyedUnlocked) {
  Mutex mutex;
  {
    MutexLock lock(mutex);
    lock.unlock();
  }
  MutexLock again(mutex);
}

TEST(RecursiveMutexTest, TheThreadThatHoldsItMayLockAgain) {
  struct {
    RecursiveMutex mutex;
    int depth KVL_GUARDED_BY(mutex) = 0;

    void descend(int levels) {
      RecursiveMutexLock lock(mutex);
      if (levels == 0) return;
      ++depth;
      descend(levels - 1);
    }
  } shared;
  shared.descend(3);
  std::thread([&shared] { shared.descend(1); }).join();
  RecursiveMutexLock lock(shared.mutex);
  EXPECT_EQ(shared.depth, 4);
}

TEST(ConditionTest, WakesOneThatWaits) {
  Flag flag;
  std::jthread waiter([&flag] { flag.waitUntilRaised(); });
  MutexLock lock(flag.mutex);
  flag.raised = true;
  flag.changed.notifyOne();
}

TEST(ConditionTest, WakesAllThatWait) {
  Flag flag;
  {
    std::jthread one([&flag] { flag.waitUntilRaised(); });
    std::jthread other([&flag] { flag.waitUntilRaised(); });
    MutexLock lock(flag.mutex);
    flag.raised = true;
    flag.changed.notifyAll();
  }
  MutexLock lock(flag.mutex);
  EXPECT_EQ(flag.seen, 2);
}

TEST(ConditionTest, ADeadlineThatHasPassedTimesOut) {
  Flag flag;
  MutexLock lock(flag.mutex);
  EXPECT_FALSE(flag.changed.waitUntil(lock, std::chrono::steady_clock::now() - 1s));
  EXPECT_FALSE(flag.changed.waitUntil(lock, std::chrono::system_clock::now() - 1s));
}

TEST(ConditionTest, WakesBeforeTheDeadline) {
  Flag flag;
  std::jthread raiser([&flag] {
    MutexLock lock(flag.mutex);
    flag.raised = true;
    flag.changed.notifyOne();
  });
  const auto deadline = std::chrono::steady_clock::now() + 1min;
  MutexLock lock(flag.mutex);
  while (!flag.raised) ASSERT_TRUE(flag.changed.waitUntil(lock, deadline));
}

}  // namespace
