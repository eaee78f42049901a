#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Lanes.h"
#include "platform/dispatch/ThreadPool.h"
#include "tests/dispatch/Patience.h"
#include "tests/support/BlockedBlocks.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kvl::DispatchQueue;
using kvl::NoDestructor;
using kvl::Semaphore;
using kvl::dispatch::laneQueue;
using kvl::dispatch::ThreadPool;
using kvltest::BlockedBlocks;

ThreadPool::Options options(unsigned eager, unsigned kept, unsigned most) {
  return {.name = "test.pool",
          .eager = eager,
          .kept = kept,
          .most = most,
          .isOwnWork = false,
          .idleTime = std::chrono::hours(1),
          .later = {},
          .start = {}};
}

// A pool is never destroyed; what it is made of stays reachable for leak checkers.
ThreadPool& poolWith(ThreadPool::Options made) {
  static NoDestructor<std::vector<std::unique_ptr<NoDestructor<ThreadPool>>>> pools;
  pools->push_back(std::make_unique<NoDestructor<ThreadPool>>(std::move(made)));
  return **pools->back();
}

TEST(ThreadPoolTest, BlocksThatWaitGetThreadsUpToTheMost) {
  ThreadPool& pool = poolWith(options(2, 1, 40));
  BlockedBlocks blocked;
  blocked.post([&](auto block) { pool.post(std::move(block)); }, 40);
  EXPECT_TRUE(blocked.allHaveBegun());
  EXPECT_EQ(pool.threadCount(), 40U);
}

TEST(ThreadPoolTest, AtTheMostBlocksWaitForAThread) {
  ThreadPool& pool = poolWith(options(2, 1, 3));
  Semaphore done;
  {
    BlockedBlocks blocked;
    blocked.post([&](auto block) { pool.post(std::move(block)); }, 3);
    ASSERT_TRUE(blocked.allHaveBegun());
    pool.post([&] { done.signal(); });
    EXPECT_FALSE(done.waitFor(20ms));
    EXPECT_EQ(pool.threadCount(), 3U);
  }
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ThreadPoolTest, BlocksThatComputeGetNoThreadsBeyondTheFirst) {
  const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
  std::deque<std::function<void()>> looks;
  auto made = options(processors, 1, 2 * processors);
  made.later = [&](auto, auto look) { looks.push_back(std::move(look)); };
  ThreadPool& pool = poolWith(std::move(made));
  std::atomic<bool> isOver = false;
  std::atomic<unsigned> computing = 0;
  Semaphore done;
  const unsigned blocks = 4 * processors;
  for (unsigned i = 0; i < blocks; ++i) {
    pool.post([&] {
      ++computing;
      while (!isOver) continue;
      done.signal();
    });
  }
  EXPECT_TRUE(kvltest::waitUntil([&] { return computing == processors; }));
  // As many looks as fit into the time within which nothing need move.
  const auto end = std::chrono::steady_clock::now() + 50ms;
  for (int i = 0; i < 20 && std::chrono::steady_clock::now() < end; ++i) {
    ASSERT_FALSE(looks.empty());
    std::exchange(looks, {}).front()();
  }
  EXPECT_EQ(pool.threadCount(), processors);
  isOver = true;
  for (unsigned i = 0; i < blocks; ++i) EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ThreadPoolTest, BlocksThatSpinForEachOtherEndNevertheless) {
  ThreadPool& pool = poolWith(options(2, 1, 10));
  std::atomic<bool> isOver = false;
  Semaphore done;
  for (int i = 0; i < 2; ++i) {
    pool.post([&] {
      while (!isOver) continue;
      done.signal();
    });
  }
  pool.post([&] { isOver = true; });
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ThreadPoolTest, IdleThreadsEndDownToTheKept) {
  auto made = options(2, 1, 20);
  made.idleTime = 1ms;
  ThreadPool& pool = poolWith(std::move(made));
  {
    BlockedBlocks blocked;
    blocked.post([&](auto block) { pool.post(std::move(block)); }, 20);
    ASSERT_TRUE(blocked.allHaveBegun());
  }
  EXPECT_TRUE(kvltest::waitUntil([&] { return pool.threadCount() == 1; }));
  Semaphore done;
  pool.post([&] { done.signal(); });
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ThreadPoolTest, AKeptThreadSleepsWhileThereAreNoBlocks) {
  auto made = options(1, 1, 1);
  made.idleTime = 0ms;
  ThreadPool& pool = poolWith(std::move(made));
  clockid_t clock{};
  Semaphore done;
  pool.post([&] {
    pthread_getcpuclockid(pthread_self(), &clock);
    done.signal();
  });
  ASSERT_TRUE(done.waitFor(kPatience));
  const auto used = [clock] {
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  };
  const auto before = used();
  EXPECT_FALSE(done.waitFor(60ms));
  EXPECT_LT(used() - before, 5ms);
}

TEST(ThreadPoolTest, WithoutBlocksNobodyLooksForMissingThreads) {
  std::deque<std::function<void()>> looks;
  auto made = options(1, 1, 3);
  made.later = [&](auto, auto look) { looks.push_back(std::move(look)); };
  ThreadPool& pool = poolWith(std::move(made));
  Semaphore done;
  {
    BlockedBlocks blocked;
    blocked.post([&](auto block) { pool.post(std::move(block)); }, 1);
    ASSERT_TRUE(blocked.allHaveBegun());
    pool.post([&] { done.signal(); });
    ASSERT_EQ(looks.size(), 1U);
  }
  ASSERT_TRUE(done.waitFor(kPatience));
  std::exchange(looks, {}).front()();
  EXPECT_TRUE(looks.empty());
}

TEST(ThreadPoolTest, BlocksWaitWhileTheSystemHasNoThreads) {
  std::atomic<bool> hasThreads = false;
  auto made = options(2, 1, 20);
  made.start = [&](const char* name, std::function<void()> body) {
    return hasThreads && kvl::core::startThread(name, std::move(body));
  };
  std::deque<std::function<void()>> looks;
  made.later = [&](auto, auto look) { looks.push_back(std::move(look)); };
  ThreadPool& pool = poolWith(std::move(made));
  Semaphore done;
  pool.post([&] { done.signal(); });
  EXPECT_EQ(pool.threadCount(), 0U);
  ASSERT_EQ(looks.size(), 1U);
  std::exchange(looks, {}).front()();
  ASSERT_EQ(looks.size(), 1U);
  EXPECT_FALSE(done.tryWait());
  hasThreads = true;
  std::exchange(looks, {}).front()();
  EXPECT_TRUE(done.waitFor(kPatience));
}

class BlockedHostTest : public testing::Test {
 protected:
  void block(int count) {
    const auto queue = DispatchQueue::concurrent("host");
    blocked_.post([&](auto block) { queue->async(std::move(block)); }, count);
    ASSERT_TRUE(blocked_.allHaveBegun());
  }

  BlockedBlocks blocked_;
};

TEST_F(BlockedHostTest, TimersAndQueuesGoOnBesideManyBlockedBlocks) {
  ASSERT_NO_FATAL_FAILURE(block(256));
  Semaphore done;
  laneQueue("lane")->asyncAfter(1ms, [&] { done.signal(); });
  EXPECT_TRUE(done.waitFor(kPatience));
  DispatchQueue::serial("other")->asyncAfter(1ms, [&] { done.signal(); });
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST_F(BlockedHostTest, TimersOfTheLaneNeedNoneOfTheWorkers) {
  constexpr int kMostWorkers = 512;
  ASSERT_NO_FATAL_FAILURE(block(kMostWorkers));
  Semaphore done;
  Semaphore waiting;
  DispatchQueue::concurrent("host")->async([&] { waiting.signal(); });
  laneQueue("lane")->asyncAfter(1ms, [&] { done.signal(); });
  EXPECT_TRUE(done.waitFor(kPatience));
  EXPECT_FALSE(waiting.tryWait());
  blocked_.release();
  EXPECT_TRUE(waiting.waitFor(kPatience));
}

TEST_F(BlockedHostTest, ASerialQueueWithABlockedBlockHoldsUpNoOther) {
  const auto first = DispatchQueue::serial("first");
  std::vector<int> order;
  Semaphore done;
  {
    BlockedBlocks own;
    own.post([&](auto block) { first->async(std::move(block)); }, 1);
    ASSERT_TRUE(own.allHaveBegun());
    first->async([&] {
      order.push_back(2);
      done.signal();
    });
    DispatchQueue::serial("second")->async([&] {
      order.push_back(1);
      done.signal();
    });
    EXPECT_TRUE(done.waitFor(kPatience));
  }
  EXPECT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order, (std::vector{1, 2}));
}

}  // namespace
