#include "platform/core/Trace.h"
#include "tests/support/TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

namespace {

using kvl::TraceRecord;

void tell(std::int64_t count) {
  kvl::core::trace(
      [count] { return TraceRecord{.kind = TraceRecord::Kind::eventsArrived, .count = count}; });
}

TEST(TraceTest, TellsEveryObserver) {
  const kvltest::TraceCapture first;
  const kvltest::TraceCapture second;
  tell(7);
  ASSERT_EQ(first.all().size(), 1U);
  EXPECT_EQ(first.all()[0].record.count, 7);
  EXPECT_EQ(second.all().size(), 1U);
}

TEST(TraceTest, UnsetIsUntouched) {
  bool wasMade = false;
  const auto point = [&wasMade] {
    kvl::core::trace([&wasMade] {
      wasMade = true;
      return TraceRecord{};
    });
  };
  point();
  EXPECT_FALSE(wasMade);
  {
    const kvltest::TraceCapture capture;
    EXPECT_TRUE(kvl::core::isTraced());
  }
  EXPECT_FALSE(kvl::core::isTraced());
  point();
  EXPECT_FALSE(wasMade);
}

TEST(TraceTest, OneThatEndsLeavesTheOthers) {
  const kvltest::TraceCapture stays;
  {
    const kvltest::TraceCapture goes;
    tell(1);
  }
  tell(2);
  EXPECT_EQ(stays.all().size(), 2U);
}

TEST(TraceTest, EndsInside) {
  int calls = 0;
  kvl::Observation observation;
  observation = kvl::observeTrace([&](const TraceRecord&) {
    ++calls;
    observation.end();
  });
  tell(1);
  tell(2);
  EXPECT_EQ(calls, 1);
}

TEST(TraceTest, WhatTheHandlerHeldGoesWithIt) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watch = held;
  auto observation = kvl::observeTrace([held](const TraceRecord&) { EXPECT_EQ(*held, 1); });
  held.reset();
  tell(1);
  EXPECT_FALSE(watch.expired());
  observation.end();
  EXPECT_TRUE(watch.expired());
}

// Others come and go while many tell: each hears only while it is there.
TEST(TraceTest, ObserversComeAndGoWhileManyTell) {
  std::atomic<bool> isOver = false;
  const kvltest::TraceCapture stays;
  std::vector<std::jthread> tellers;
  for (int i = 0; i < 3; ++i) {
    tellers.emplace_back([&isOver] {
      for (int count = 0; count < 200 || !isOver; ++count) tell(count);
    });
  }
  for (int i = 0; i < 100; ++i) {
    auto alive = std::make_optional<std::atomic<int>>(0);
    auto observation = kvl::observeTrace([&alive](const TraceRecord&) { ++*alive; });
    observation.end();
    alive.reset();
  }
  isOver = true;
  tellers.clear();
  EXPECT_GE(stays.all().size(), 600U);
}

}  // namespace
