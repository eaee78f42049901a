// Tasks that are cancelled and destroyed, before, while and after they run.
#include "tests/dispatch/TaskSupport.h"
#include "tests/support/MainLoop.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Task;
using kvltest::CountedFrame;
using kvltest::Gate;
using kvltest::runPendingMainBlocks;

class TaskLifetimeTest : public testing::Test {
 protected:
  Task<> wait() {
    const CountedFrame frame(frames);
    co_await gate.opened();
    ++arrivals;
    co_await gate.opened();
    ++arrivals;
  }

  Gate gate;
  std::atomic<int> frames = 0;
  std::atomic<int> arrivals = 0;
  int ends = 0;
};

TEST_F(TaskLifetimeTest, DestroyedBeforeItIsStarted) {
  {
    const auto task = wait();
  }
  EXPECT_EQ(gate.begun, 0);
  auto task = wait();
  task.cancel();
  EXPECT_TRUE(task.isDone());
  task.start([this] { ++ends; });
  EXPECT_EQ(gate.begun, 0);
  EXPECT_EQ(ends, 0);
}

TEST_F(TaskLifetimeTest, DestroyedWhileItWaits) {
  {
    auto task = wait();
    task.start([this] { ++ends; });
    EXPECT_EQ(frames, 1);
  }
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(gate.abandoned, 1);
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 0);
  EXPECT_EQ(ends, 0);
}

TEST_F(TaskLifetimeTest, CancelledOnAnotherThreadWhileItsOutcomeIsOnItsWay) {
  auto task = wait();
  task.start([this] { ++ends; });
  gate.open();
  std::thread([&] { task.cancel(); }).join();
  EXPECT_EQ(frames, 0);
  EXPECT_TRUE(task.isDone());
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 0);
  EXPECT_EQ(ends, 0);
}

// Cancels what it is part of, and looks what its code may still do.
Task<> cancelItself(std::optional<Task<>>& self, Gate& gate, std::string& order,
                    std::atomic<int>& frames) {
  const CountedFrame frame(frames);
  co_await gate.opened();
  self.reset();
  order += frames == 1 ? "runs on" : "has gone";
  co_await gate.opened();
  order += ", and on";
}

TEST_F(TaskLifetimeTest, DestroyedByItsOwnCodeStopsAtItsNextWait) {
  std::optional<Task<>> task;
  std::string order;
  task.emplace(cancelItself(task, gate, order, frames));
  task->start([this] { ++ends; });
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(order, "runs on");
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(gate.begun, 1) << "an operation begins although nobody waits for it";
  EXPECT_EQ(ends, 0);
}

Task<> cancelAtItsEnd(std::optional<Task<>>& self, Gate& gate, std::atomic<int>& frames) {
  const CountedFrame frame(frames);
  co_await gate.opened();
  self.reset();
}

TEST_F(TaskLifetimeTest, DestroyedByItsOwnCodeStopsAtItsEnd) {
  std::optional<Task<>> task;
  task.emplace(cancelAtItsEnd(task, gate, frames));
  task->start([this] { ++ends; });
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(ends, 0) << "a task that was cancelled has told its end";
}

Task<> callBetween(Gate& gate, std::function<void()> call, std::atomic<int>& frames) {
  const CountedFrame frame(frames);
  co_await gate.opened();
  call();
}

Task<> awaitCall(Gate& gate, std::function<void()> call, std::string& order,
                 std::atomic<int>& frames) {
  const CountedFrame frame(frames);
  co_await callBetween(gate, call, frames);
  order += "went on";
}

TEST_F(TaskLifetimeTest, CancelledInsideAnInnerTaskTheOuterOneNeverGoesOn) {
  std::string order;
  std::optional<Task<>> task;
  const auto reset = [&] { task.reset(); };
  task.emplace(awaitCall(gate, reset, order, frames));
  task->start();
  EXPECT_EQ(frames, 2);
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(order, "");
  EXPECT_EQ(frames, 0);
}

TEST_F(TaskLifetimeTest, CancelledBeforeAnInnerTaskBeginsItNeverDoes) {
  std::string order;
  std::optional<Task<>> task;
  task.emplace([](auto& self, Gate& opens, std::string& text, auto& count) -> Task<> {
    self.reset();
    co_await awaitCall(opens, [] {}, text, count);
  }(task, gate, order, frames));
  task->start();
  EXPECT_FALSE(task);
  EXPECT_EQ(gate.begun, 0);
  EXPECT_EQ(frames, 0);
}

TEST_F(TaskLifetimeTest, DestroyedWhileItRunsOnAnotherThreadWaitsForNothing) {
  kvl::Semaphore running;
  kvl::Semaphore mayEnd;
  std::string order;
  const auto block = [&] {
    running.signal();
    mayEnd.wait();
  };
  std::weak_ptr<kvl::DispatchQueue> home;
  {
    const auto queue = kvl::DispatchQueue::serial("tests.task.home");
    home = queue;
    auto task = awaitCall(gate, block, order, frames).on(queue);
    task.start([this] { ++ends; });
    gate.open();
    running.wait();
  }
  EXPECT_EQ(frames, 2) << "a frame has been destroyed while it runs";
  mayEnd.signal();
  while (!home.expired()) std::this_thread::yield();
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(order, "");
  EXPECT_EQ(ends, 0);
}

TEST_F(TaskLifetimeTest, DoneMayDestroyTheTask) {
  auto task = std::make_shared<std::optional<Task<>>>(wait());
  std::weak_ptr<std::optional<Task<>>> watch = task;
  (*task)->start([this, task] {
    EXPECT_EQ(frames, 0);
    task->reset();
    ++ends;
  });
  task.reset();
  for (int i = 0; i < 2; ++i) {
    gate.open();
    runPendingMainBlocks();
  }
  EXPECT_EQ(ends, 1);
  EXPECT_TRUE(watch.expired()) << "the task still holds what was to be told";
}

// What the coroutine was called with goes with its frame.
Task<> holdArgument(std::shared_ptr<int> /*held*/, Gate& gate) {
  co_await gate.opened();
}

TEST_F(TaskLifetimeTest, TheFrameAndWhatWasToBeToldGoWithTheEnd) {
  auto held = std::make_shared<int>();
  auto told = std::make_shared<int>();
  const std::weak_ptr<int> heldWatch = held;
  const std::weak_ptr<int> toldWatch = told;
  auto task = holdArgument(std::move(held), gate);
  task.start([&, told = std::move(told)] {
    EXPECT_TRUE(heldWatch.expired());
    ++ends;
  });
  EXPECT_FALSE(heldWatch.expired());
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(ends, 1);
  EXPECT_TRUE(toldWatch.expired());
}

TEST_F(TaskLifetimeTest, CancellingLetsGoOfWhatWasToBeTold) {
  auto told = std::make_shared<int>();
  const std::weak_ptr<int> watch = told;
  auto task = wait();
  task.start([told = std::move(told)] {});
  task.cancel();
  EXPECT_TRUE(watch.expired());
}

TEST_F(TaskLifetimeTest, ATaskThatIsReplacedIsCancelled) {
  auto task = wait();
  task.start();
  task = wait();
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(gate.abandoned, 1);
  task.start();
  gate.open();
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 1);
}

// Notes when it goes.
class Leaving {
 public:
  Leaving(std::string& order, char name) : order_(&order), name_(name) {}
  Leaving(const Leaving&) = delete;
  Leaving& operator=(const Leaving&) = delete;
  ~Leaving() { *order_ += name_; }

 private:
  std::string* order_;
  const char name_;
};

Task<> nest(Gate& gate, std::string& order, char name) {
  const Leaving leaving(order, name);
  if (name == 'c') {
    co_await gate.opened();
  } else {
    co_await nest(gate, order, static_cast<char>(name + 1));
  }
}

TEST_F(TaskLifetimeTest, NestedTasksGoInnermostFirst) {
  std::string order;
  {
    auto task = nest(gate, order, 'a');
    task.start();
    EXPECT_EQ(order, "");
  }
  EXPECT_EQ(order, "cba");
}

Task<> holdItsGate(std::shared_ptr<Gate> gate, std::atomic<int>& frames,
                   std::atomic<int>& arrivals) {
  const CountedFrame frame(frames);
  co_await gate->opened();
  ++arrivals;
}

// Each outcome comes on a worker thread while the task is destroyed on its own.
TEST_F(TaskLifetimeTest, ThousandTasksOnTenThreads) {
  std::atomic<int> ended = 0;
  const auto useTasks = [&] {
    const auto home = kvl::DispatchQueue::serial("tests.task.home");
    for (int i = 0; i < 100; ++i) {
      const auto own = std::make_shared<Gate>();
      auto task = holdItsGate(own, frames, arrivals).on(home);
      task.start([&ended] { ++ended; });
      kvl::DispatchQueue::concurrent("tests.task.opening")->async([own] { own->open(); });
      while (i % 4 == 0 && !task.isDone()) std::this_thread::yield();
      if (i % 4 == 1) std::this_thread::yield();
    }
  };
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 10; ++i) threads.emplace_back(useTasks);
  }
  while (frames > 0) std::this_thread::yield();
  EXPECT_GE(arrivals, 250) << "a task that is awaited to its end has not got there";
  EXPECT_GE(arrivals, ended);
}

}  // namespace
