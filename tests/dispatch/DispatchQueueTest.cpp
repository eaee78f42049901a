#include "tests/dispatch/Patience.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/DispatchQueue.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kvl::DispatchQueue;
using kvl::Semaphore;
using Clock = std::chrono::steady_clock;

TEST(DispatchQueueTest, KeepsItsLabel) {
  EXPECT_EQ(DispatchQueue::concurrent("korvale.local.session")->label(), "korvale.local.session");
  EXPECT_EQ(DispatchQueue::serial("s")->label(), "s");
}

TEST(DispatchQueueTest, RunsBlocksOffTheCallersThread) {
  std::promise<std::thread::id> runner;
  DispatchQueue::concurrent("test")->async([&] { runner.set_value(std::this_thread::get_id()); });
  EXPECT_NE(runner.get_future().get(), std::this_thread::get_id());
}

TEST(DispatchQueueTest, SerialQueueRunsBlocksInOrderAndOneAtATime) {
  const auto queue = DispatchQueue::serial("test");
  std::vector<int> order;  // unguarded on purpose: the thread sanitizer watches
  Semaphore done;
  for (int i = 0; i < 1000; ++i) queue->async([&order, i] { order.push_back(i); });
  queue->async([&] { done.signal(); });
  ASSERT_TRUE(done.waitFor(kPatience));
  ASSERT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(DispatchQueueTest, ConcurrentQueueRunsBlocksInParallel) {
  const auto queue = DispatchQueue::concurrent("test");
  Semaphore first;
  Semaphore second;
  Semaphore done;
  // Each block waits for the other: run one after the other they would never end.
  queue->async([&] {
    first.signal();
    if (second.waitFor(kPatience)) done.signal();
  });
  queue->async([&] {
    second.signal();
    if (first.waitFor(kPatience)) done.signal();
  });
  EXPECT_TRUE(done.waitFor(kPatience));
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(DispatchQueueTest, QueueLetGoOfStillRunsItsBlocks) {
  std::promise<void> ran;
  {
    const auto queue = DispatchQueue::serial("test");
    queue->async([&] { ran.set_value(); });
  }
  EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(DispatchQueueTest, QueueMayBeLetGoOfInsideItsOwnBlock) {
  std::promise<void> ran;
  auto queue = DispatchQueue::serial("test");
  auto* raw = queue.get();
  raw->async([&ran, queue = std::move(queue)]() mutable {
    queue.reset();
    ran.set_value();
  });
  EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(DispatchQueueTest, QueueMayBeLetGoOfOnAnotherThreadWhileItsBlockRuns) {
  for (const auto& make : {&DispatchQueue::serial, &DispatchQueue::concurrent}) {
    Semaphore running;
    Semaphore goOn;
    std::atomic<int> ran = 0;
    Semaphore done;
    auto queue = make("test");
    queue->async([&] {
      running.signal();
      if (goOn.waitFor(kPatience)) ++ran;
      done.signal();
    });
    queue->async([&] {
      ++ran;
      done.signal();
    });
    ASSERT_TRUE(running.waitFor(kPatience));
    std::thread([held = std::move(queue)]() mutable { held.reset(); }).join();
    goOn.signal();
    ASSERT_TRUE(done.waitFor(kPatience) && done.waitFor(kPatience));
    EXPECT_EQ(ran, 2);
  }
}

TEST(DispatchQueueTest, DelayedBlocksOutliveTheirQueueAndGoOnceTheyHaveRun) {
  for (const auto& make : {&DispatchQueue::serial, &DispatchQueue::concurrent}) {
    const auto token = std::make_shared<Semaphore>();
    make("test")->asyncAfter(10ms, [token] { token->signal(); });
    EXPECT_GE(token.use_count(), 2);
    ASSERT_TRUE(token->waitFor(kPatience));
    EXPECT_TRUE(kvltest::waitUntil([&] { return token.use_count() == 1; }));
  }
}

TEST(DispatchQueueTest, DelayedBlocksNeverRunEarly) {
  const auto queue = DispatchQueue::concurrent("test");
  const auto start = Clock::now();
  std::promise<Clock::time_point> fired;
  queue->asyncAfter(50ms, [&] { fired.set_value(Clock::now()); });
  EXPECT_GE(fired.get_future().get() - start, 50ms);
}

TEST(DispatchQueueTest, DelayedBlocksRunByTheirDelaysAndNotByTheirOrder) {
  const auto queue = DispatchQueue::serial("test");
  std::vector<int> order;
  Semaphore done;
  queue->asyncAfter(120ms, [&] {
    order.push_back(3);
    done.signal();
  });
  queue->asyncAfter(10ms, [&] { order.push_back(1); });
  queue->asyncAfter(60ms, [&] { order.push_back(2); });
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TEST(DispatchQueueTest, DelayedBlocksNeverOvertakeEarlierOnes) {
  constexpr int kBlocks = 20000;
  const auto queue = DispatchQueue::serial("test");
  std::vector<int> order;
  Semaphore done;
  for (int i = 0; i < kBlocks; ++i) {
    queue->asyncAfter(1us, [&, i] {
      order.push_back(i);
      if (i == kBlocks - 1) done.signal();
    });
  }
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_EQ(order.size(), std::size_t{kBlocks});
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(DispatchQueueTest, DelaysOfZeroOrLessMeanNow) {
  const auto queue = DispatchQueue::concurrent("test");
  Semaphore done;
  queue->asyncAfter(0ns, [&] { done.signal(); });
  queue->asyncAfter(-5s, [&] { done.signal(); });
  queue->asyncAfter(std::chrono::nanoseconds::min(), [&] { done.signal(); });
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(DispatchQueueTest, TheLongestDelayDoesNotOverflow) {
  std::atomic<bool> ran = false;
  Semaphore done;
  const auto queue = DispatchQueue::serial("test");
  queue->asyncAfter(std::chrono::nanoseconds::max(), [&] { ran = true; });
  queue->asyncAfter(1ms, [&] { done.signal(); });
  ASSERT_TRUE(done.waitFor(kPatience));
  EXPECT_FALSE(ran);
}

TEST(DispatchQueueTest, ManyThreadsMaySetTimersAtOnce) {
  const auto queue = DispatchQueue::concurrent("test");
  Semaphore done;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int timer = 0; timer < 250; ++timer) {
        queue->asyncAfter(std::chrono::microseconds(timer % 50), [&] { done.signal(); });
      }
    });
  }
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(done.waitFor(kPatience));
}

TEST(MainQueueTest, RunsBlocksInOrderWhereTheMainContextIsIterated) {
  std::vector<int> order;
  const auto queue = DispatchQueue::main();
  queue->async([&] { order.push_back(1); });
  queue->async([&] { order.push_back(2); });
  EXPECT_TRUE(order.empty());
  while (order.size() < 2) g_main_context_iteration(nullptr, TRUE);
  EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(MainQueueTest, RunsDelayedBlocksOnTheMainThread) {
  bool onMain = false;
  bool ran = false;
  DispatchQueue::main()->asyncAfter(1ms, [&] {
    onMain = kvl::isMainThread();
    ran = true;
  });
  while (!ran) g_main_context_iteration(nullptr, TRUE);
  EXPECT_TRUE(onMain);
}

TEST(MainQueueTest, TellsTheMainThreadFromOthers) {
  EXPECT_TRUE(kvl::isMainThread());
  bool other = true;
  std::thread([&] { other = kvl::isMainThread(); }).join();
  EXPECT_FALSE(other);
}

}  // namespace
