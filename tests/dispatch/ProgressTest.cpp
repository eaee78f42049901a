#include "tests/dispatch/Patience.h"
#include "tests/support/OtherThread.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Progress.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using kvl::Observation;
using kvl::Progress;
using kvl::ProgressState;
using kvl::Semaphore;

ProgressState numbered(int number) {
  return {100, number, "step", std::to_string(number)};
}

TEST(ProgressTest, ChangesAllFieldsTogether) {
  Progress progress({1, 0, "a", "b"});
  progress.update({4, 1, "c", "d"});
  EXPECT_EQ(progress.state(), (ProgressState{4, 1, "c", "d"}));
  EXPECT_DOUBLE_EQ(progress.state().fractionCompleted(), 0.25);
  EXPECT_DOUBLE_EQ(ProgressState{}.fractionCompleted(), 0);
}

TEST(ProgressTest, TellsObserversThePresentStateAndEachLaterOneInOrder) {
  Progress progress(numbered(0));
  std::vector<std::int64_t> seen;
  Semaphore done;
  const auto observation = progress.observe([&](const ProgressState& state) {
    seen.push_back(state.completedUnitCount);
    if (state.completedUnitCount == 100) done.signal();
  });
  for (int i = 1; i <= 100; ++i) progress.update(numbered(i));
  ASSERT_TRUE(done.waitFor(kPatience));
  ASSERT_EQ(seen.size(), 101U);
  for (int i = 0; i <= 100; ++i) EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
}

TEST(ProgressTest, ObserversRunOffTheUpdatingThreadAndMayUpdateThemselves) {
  Progress progress(numbered(0));
  Semaphore done;
  const auto observation = progress.observe([&](const ProgressState& state) {
    EXPECT_FALSE(kvl::isMainThread());
    if (state.completedUnitCount == 1) progress.update(numbered(2));
    if (state.completedUnitCount == 2) done.signal();
  });
  progress.update(numbered(1));
  EXPECT_TRUE(done.waitFor(kPatience));
}

TEST(ProgressTest, EndedObservationStaysSilent) {
  Progress progress(numbered(0));
  std::atomic<int> calls = 0;
  Semaphore first;
  auto observation = progress.observe([&](const ProgressState&) {
    ++calls;
    first.signal();
  });
  ASSERT_TRUE(first.waitFor(kPatience));
  observation.end();
  const int before = calls;
  Semaphore later;
  const auto other = progress.observe([&](const ProgressState& state) {
    if (state.completedUnitCount == 1) later.signal();
  });
  progress.update(numbered(1));
  ASSERT_TRUE(later.waitFor(kPatience));
  EXPECT_EQ(calls, before);
}

TEST(ProgressTest, EndingWaitsForTheRunningHandlerOnAnotherThread) {
  Progress progress(numbered(0));
  Semaphore entered;
  Semaphore leave;
  std::atomic<bool> left = false;
  auto observation = progress.observe([&](const ProgressState&) {
    entered.signal();
    leave.wait();
    left = true;
  });
  ASSERT_TRUE(entered.waitFor(kPatience));
  std::jthread releaser([&] { leave.signal(); });
  observation.end();
  EXPECT_TRUE(left);
}

// What it holds may need what the host takes down next.
TEST(ProgressTest, EndingHasLetGoOfTheRunningHandlerWhenItReturns) {
  Progress progress(numbered(0));
  Semaphore entered;
  Semaphore leave;
  std::optional<std::thread::id> goneOn;
  std::shared_ptr<void> held(nullptr, [&goneOn](void*) { goneOn = std::this_thread::get_id(); });
  auto observation = progress.observe([&, held = std::move(held)](const ProgressState&) {
    entered.signal();
    leave.wait();
  });
  ASSERT_TRUE(entered.waitFor(kPatience));
  std::thread::id endedOn;
  kvltest::OtherThread other([&] {
    endedOn = std::this_thread::get_id();
    observation.end();
  });
  EXPECT_TRUE(other.isWaiting());
  leave.signal();
  other.join();
  EXPECT_EQ(goneOn, endedOn);
}

TEST(ProgressTest, ObservationMayEndInsideItsOwnHandler) {
  Progress progress(numbered(0));
  std::optional<Observation> observation;
  Semaphore stored;
  Semaphore ended;
  std::atomic<int> calls = 0;
  observation = progress.observe([&](const ProgressState&) {
    ++calls;
    stored.wait();
    observation.reset();
    ended.signal();
  });
  stored.signal();
  ASSERT_TRUE(ended.waitFor(kPatience));
  progress.update(numbered(1));
  EXPECT_EQ(calls, 1);
}

TEST(ProgressTest, ObservationMayOutliveTheRecord) {
  auto progress = std::make_unique<Progress>(numbered(0));
  Semaphore told;
  auto observation = progress->observe([&](const ProgressState&) { told.signal(); });
  ASSERT_TRUE(told.waitFor(kPatience));
  progress.reset();
  observation.end();
}

TEST(ProgressTest, RecordMayGoWhileObserversAreBeingTold) {
  for (int round = 0; round < 50; ++round) {
    auto progress = std::make_unique<Progress>(numbered(0));
    std::atomic<int> calls = 0;
    auto observation = progress->observe([&](const ProgressState&) { ++calls; });
    progress->update(numbered(1));
    std::jthread destroyer([&] { progress.reset(); });
    observation.end();
  }
}

TEST(ProgressTest, MovedObservationGoesOn) {
  Progress progress(numbered(0));
  Semaphore told;
  Observation observation;
  observation = progress.observe([&](const ProgressState& state) {
    if (state.completedUnitCount == 1) told.signal();
  });
  progress.update(numbered(1));
  EXPECT_TRUE(told.waitFor(kPatience));
}

}  // namespace
