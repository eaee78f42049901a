// What tasks do, and where. How they go away is in `TaskLifetimeTest`.
#include "tests/dispatch/TaskSupport.h"
#include "tests/support/MainLoop.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Task;
using kvltest::Gate;
using kvltest::runPendingMainBlocks;
using Threads = std::vector<std::thread::id>;

template <class Awaited>
concept IsAwaitedByTasks = requires(kvl::detail::TaskPromiseBase& promise, Awaited&& awaited) {
  promise.await_transform(std::forward<Awaited>(awaited));
};
static_assert(IsAwaitedByTasks<Task<int>> && IsAwaitedByTasks<Gate::Wait>);
static_assert(!IsAwaitedByTasks<Task<int>&>, "a task is awaited once");
static_assert(!IsAwaitedByTasks<std::suspend_always>, "nothing may resume a task behind its back");

Task<> noteThreads(Gate& gate, Threads& threads) {
  threads.push_back(std::this_thread::get_id());
  co_await gate.opened();
  threads.push_back(std::this_thread::get_id());
}

TEST(TaskTest, DoesNothingBeforeItIsStarted) {
  Gate gate;
  Threads threads;
  auto task = noteThreads(gate, threads);
  EXPECT_TRUE(threads.empty());
  EXPECT_FALSE(task.isDone());
  task.start();
  EXPECT_EQ(threads, Threads{std::this_thread::get_id()});
}

TEST(TaskTest, GoesOnOnTheMainQueue) {
  Gate gate;
  Threads threads;
  auto task = noteThreads(gate, threads);
  std::thread([&] { task.start(); }).join();
  EXPECT_NE(threads.at(0), std::this_thread::get_id());
  std::thread([&] { gate.open(); }).join();
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_FALSE(task.isDone());
  runPendingMainBlocks();
  EXPECT_EQ(threads.at(1), std::this_thread::get_id());
  EXPECT_TRUE(task.isDone());
}

// A queue whose blocks run on one thread that the test can tell from others.
class ThreadedQueue final : public kvl::DispatchQueue {
 public:
  void async(Block block) override {
    serial_->async([block = std::move(block)] {
      isRunning = true;
      block();
      isRunning = false;
    });
  }
  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    serial_->asyncAfter(delay, std::move(block));
  }
  [[nodiscard]] const std::string& label() const noexcept override { return serial_->label(); }

  static inline thread_local bool isRunning = false;

 private:
  const std::shared_ptr<DispatchQueue> serial_ = DispatchQueue::serial("tests.task");
};

Task<bool> isOnItsQueue(Gate& gate) {
  co_await gate.opened();
  co_return ThreadedQueue::isRunning;
}

Task<bool> isAwaitedOnItsQueue(Gate& gate) {
  co_return co_await isOnItsQueue(gate);
}

TEST(TaskTest, GoesOnOnAQueueOfTheHosts) {
  Gate gate;
  kvl::Semaphore ended;
  bool wasThere = false;
  auto task = isAwaitedOnItsQueue(gate).on(std::make_shared<ThreadedQueue>());
  task.start([&](bool isThere) {
    wasThere = isThere && ThreadedQueue::isRunning;
    ended.signal();
  });
  gate.open();
  ended.wait();
  EXPECT_TRUE(wasThere);
}

Task<std::unique_ptr<int>> makeNumber(int number) {
  co_return std::make_unique<int>(number);
}

Task<int> addNumbers(Gate& gate) {
  const auto first = co_await makeNumber(1);
  co_await gate.opened();
  auto second = makeNumber(2);
  co_return *first + *co_await std::move(second);
}

TEST(TaskTest, GivesItsResultOnce) {
  Gate gate;
  std::vector<int> results;
  auto task = addNumbers(gate);
  task.start([&](int result) { results.push_back(result); });
  gate.open();
  EXPECT_TRUE(results.empty());
  runPendingMainBlocks();
  EXPECT_EQ(results, std::vector{3});
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(results.size(), 1U);
}

TEST(TaskTest, OneThatNeverWaitsIsDoneAtOnce) {
  std::vector<int> results;
  auto task = makeNumber(7);
  task.start([&](const std::unique_ptr<int>& result) { results.push_back(*result); });
  EXPECT_TRUE(task.isDone());
  EXPECT_EQ(results, std::vector{7});
}

Task<int> fail(Gate& gate) {
  co_await gate.opened();
  throw std::runtime_error("failed");
}

Task<> throwNothingYet() {
  throw std::runtime_error("failed at once");
  co_return;
}

Task<std::string> catchFailures(Gate& gate) {
  std::string caught;
  try {
    co_await fail(gate);
  } catch (const std::runtime_error& error) {
    caught += error.what();
  }
  try {
    co_await throwNothingYet();
  } catch (const std::runtime_error& error) {
    caught += ", ";
    caught += error.what();
  }
  co_return caught;
}

TEST(TaskTest, AnExceptionReachesTheAwaiter) {
  Gate gate;
  std::string caught;
  auto task = catchFailures(gate);
  task.start([&](std::string given) { caught = std::move(given); });
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(caught, "failed, failed at once");
}

TEST(TaskDeathTest, AnExceptionThatNobodyAwaitsEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        auto task = throwNothingYet();
        task.start();
      },
      "failed at once");
}

Task<int> one() {
  co_return 1;
}

Task<int> countReturns(int times) {
  int sum = 0;
  for (int i = 0; i < times; ++i) sum += co_await one();
  co_return sum;
}

TEST(TaskTest, HundredThousandNestedReturns) {
  constexpr int kTimes = 100'000;
  EXPECT_EQ(kvl::run(countReturns(kTimes)), kTimes);
}

Task<int> descend(int depth) {
  if (depth == 0) co_return 0;
  co_return 1 + co_await descend(depth - 1);
}

TEST(TaskTest, HundredThousandNestedTasks) {
  constexpr int kDepth = 100'000;
  EXPECT_EQ(kvl::run(descend(kDepth)), kDepth);
}

// The outcome meets a frame whose thread is still below its `co_await`.
TEST(TaskTest, AnOutcomeThatComesBeforeTheStarterHasLeftIsKept) {
  Gate gate;
  const auto home = kvl::DispatchQueue::serial("tests.task.home");
  kvl::Semaphore seen;
  gate.beforeTheStarterLeaves = [&] {
    gate.open();
    home->async([&] { seen.signal(); });
    seen.wait();
  };
  Threads threads;
  kvl::Semaphore ended;
  auto task = noteThreads(gate, threads).on(home);
  task.start([&] { ended.signal(); });
  ended.wait();
  EXPECT_EQ(threads.size(), 2U);
}

Task<int> afterTheMainQueue(bool& served) {
  Gate gate;
  kvl::DispatchQueue::main()->async([&] {
    served = true;
    gate.open();
  });
  co_await gate.opened();
  co_return 5;
}

TEST(TaskTest, RunServesTheMainQueue) {
  bool served = false;
  EXPECT_EQ(kvl::run(afterTheMainQueue(served)), 5);
  EXPECT_TRUE(served);
}

TEST(TaskTest, RunWaitsForATaskOnAnotherQueue) {
  Gate gate;
  Threads threads;
  const auto home = kvl::DispatchQueue::serial("tests.task.home");
  home->async([&] {
    while (gate.begun == 0) std::this_thread::yield();
    gate.open();
  });
  kvl::run(noteThreads(gate, threads).on(home));
  EXPECT_NE(threads.at(1), std::this_thread::get_id());
}

TEST(TaskTest, RunGivesWhatOnlyMoves) {
  EXPECT_EQ(*kvl::run(makeNumber(9)), 9);
}

}  // namespace
