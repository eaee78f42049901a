// Tasks that are given to `run` when they are over already, or under way.
#include "tests/dispatch/TaskSupport.h"
#include "tests/support/MainLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <utility>

namespace {

using kvl::Task;
using kvltest::CountedFrame;
using kvltest::Gate;

Task<> passThrough(Gate& gate, std::atomic<int>& frames) {
  const CountedFrame counted(frames);
  co_await gate.opened();
}

Task<int> giveFive() {
  co_return 5;
}

class TaskRunTest : public testing::Test {
 protected:
  Gate gate;
  std::atomic<int> frames = 0;
};

TEST_F(TaskRunTest, OneThatWasCancelledReturnsAtOnce) {
  auto task = passThrough(gate, frames);
  EXPECT_TRUE(task.canStart());
  task.cancel();
  EXPECT_FALSE(task.canStart());
  kvl::run(std::move(task));
  EXPECT_EQ(gate.begun, 0);
}

TEST_F(TaskRunTest, OneThatWasMovedFromReturnsAtOnce) {
  auto task = passThrough(gate, frames);
  const auto taken = std::move(task);
  EXPECT_TRUE(taken.canStart());
  kvl::run(std::move(task));  // NOLINT(bugprone-use-after-move): what it is about
  EXPECT_FALSE(taken.isDone());
}

TEST_F(TaskRunTest, OneThatIsDoneReturnsAtOnce) {
  auto task = passThrough(gate, frames);
  int ends = 0;
  task.start([&] { ++ends; });
  gate.open();
  kvltest::runPendingMainBlocks();
  kvl::run(std::move(task));
  EXPECT_EQ(ends, 1);
}

TEST_F(TaskRunTest, OneThatWaitsIsDestroyed) {
  auto task = passThrough(gate, frames);
  int ends = 0;
  task.start([&] { ++ends; });
  EXPECT_EQ(frames, 1);
  EXPECT_FALSE(task.canStart());
  kvl::run(std::move(task));
  EXPECT_EQ(frames, 0);
  EXPECT_EQ(gate.abandoned, 1);
  gate.open();
  kvltest::runPendingMainBlocks();
  EXPECT_EQ(ends, 0);
}

TEST(TaskRunDeathTest, WithoutAResultTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        auto task = giveFive();
        task.cancel();
        static_cast<void>(kvl::run(std::move(task)));
      },
      "");
}

}  // namespace
