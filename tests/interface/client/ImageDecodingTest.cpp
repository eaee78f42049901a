// Many images at once: turns, handlers, letting go.
#include "tests/interface/client/DecodingFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace {

using kvltest::DecodingTest;
using kvltest::falseOptions;
using kvltest::Handlers;
using kvltest::ImageDecoding;
using kvltest::kFalseSize;
using kvltest::Sizes;
using kvltest::sourceOf;
using kvltest::waitUntil;

TEST_F(DecodingTest, HandlersAreCalledOnceOnTheQueue) {
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  for (int i = 0; i < 50; ++i) decoding.open(sourceOf("honest"), handlers.forSize());
  decoding.open(sourceOf("signal 9"), handlers.forSize());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes().size(), 51U);
  EXPECT_EQ(std::ranges::count(handlers.sizes(), std::optional(kFalseSize)), 50);
}

TEST_F(DecodingTest, HandlersOfImagesThatNeedNoDecoderAreCalledLater) {
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  decoding.open(sourceOf("", kvltest::ImageFormat::kUnknown), handlers.forSize());
  const auto source = sourceOf("honest");
  std::promise<kvl::Bitmap> bitmap;
  decoding.draw(source, {0, 0}, [&bitmap](const kvl::Bitmap& drawn) { bitmap.set_value(drawn); });
  EXPECT_TRUE(bitmap.get_future().get().empty());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes(), Sizes{std::nullopt});
}

TEST_F(DecodingTest, ThreadsThatWaitAndHandlersShareTheDecoders) {
  constexpr int kThreads = 4;
  constexpr int kEach = 30;
  Handlers handlers;
  ImageDecoding decoding(falseOptions());
  std::vector<std::thread> threads;
  std::atomic<int> drawn = 0;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kEach; ++j) {
        const auto source = sourceOf("honest");
        decoding.open(source, handlers.forSize());
        if (!decoding.draw(source, {4, 4}).empty()) ++drawn;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(drawn, kThreads * kEach);
  EXPECT_EQ(handlers.sizes(), Sizes(kThreads * kEach, kFalseSize));
  EXPECT_LE(kvltest::workers().size(), 2U);
}

TEST_F(DecodingTest, TwoDecodersAtMost) {
  Handlers handlers;
  {
    ImageDecoding decoding(falseOptions());
    for (int i = 0; i < 6; ++i) decoding.open(sourceOf("sleep"), handlers.forSize());
    EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 2; }));
    EXPECT_EQ(kvltest::workers().size(), 2U);
  }
  EXPECT_TRUE(handlers.waitForAll());
}

// A handler that does not return has no place.
TEST_F(DecodingTest, ABlockedHandlerHoldsUpNobody) {
  std::promise<void> release;
  const auto released = release.get_future().share();
  std::atomic<int> blocked = 0;
  ImageDecoding decoding(falseOptions());
  for (int i = 0; i < 4; ++i) {
    decoding.open(sourceOf("honest"), [&blocked, released](std::optional<kvl::Size>) {
      ++blocked;
      released.wait();
      --blocked;
    });
  }
  EXPECT_TRUE(waitUntil([&blocked] { return blocked == 4; }));
  EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  release.set_value();
  EXPECT_TRUE(waitUntil([&blocked] { return blocked == 0; }));
}

TEST_F(DecodingTest, AnIconWaitsForNoHostileImage) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  std::vector<kvltest::SourcePtr> hostile(6);
  for (auto& source : hostile) {
    source = sourceOf("sleep");
    decoding.open(source, handlers.forSize());
  }
  for (int i = 0; i < 5; ++i) EXPECT_EQ(decoding.open(sourceOf("honest")), kFalseSize);
  EXPECT_EQ(handlers.alive(), 6) << "each takes 20 s";
  for (const auto& source : hostile) source->letGo();
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
}

TEST_F(DecodingTest, WhatIsPutOffIsDrawnInTheEnd) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  for (int i = 0; i < 3; ++i) decoding.open(sourceOf("sleep-for 100"), handlers.forSize());
  decoding.open(sourceOf("honest"), handlers.forSize());
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_EQ(handlers.sizes(), Sizes(4, kFalseSize));
}

TEST_F(DecodingTest, WhatWaitsAndIsLetGoIsForgotten) {
  Handlers handlers;
  Handlers others;
  ImageDecoding decoding(shortShare());
  const auto first = sourceOf("sleep");
  const auto second = sourceOf("sleep");
  decoding.open(first, others.forSize());
  decoding.open(second, others.forSize());
  std::vector<kvltest::SourcePtr> sources(3);
  for (auto& source : sources) {
    source = sourceOf("sleep");
    decoding.open(source, handlers.forSize());
  }
  for (auto& source : sources) source->letGo();
  EXPECT_EQ(handlers.alive(), 0);
  EXPECT_TRUE(handlers.sizes().empty());
  EXPECT_EQ(others.alive(), 2);
  // One that has been let go is not taken any more.
  decoding.open(sources[0], handlers.forSize());
  EXPECT_EQ(handlers.alive(), 0);
  EXPECT_EQ(decoding.open(sources[0]), std::nullopt);
  first->letGo();
  second->letGo();
  EXPECT_TRUE(others.waitForAll());
}

// It would run for 20 seconds.
TEST_F(DecodingTest, WhatRunsAndIsLetGoEndsWithItsShare) {
  Handlers handlers;
  ImageDecoding decoding(shortShare());
  const auto source = sourceOf("sleep");
  decoding.open(source, handlers.forSize());
  EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 1; }));
  const auto begin = std::chrono::steady_clock::now();
  source->letGo();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(DecodingTest, WhoWaitsForAnImageThatIsLetGoGetsNone) {
  ImageDecoding decoding(shortShare());
  for (const bool isRunning : {true, false}) {
    const auto source = sourceOf("sleep");
    const auto busy = sourceOf("sleep");
    const auto busyToo = sourceOf("sleep");
    Handlers handlers;
    if (!isRunning) {
      decoding.open(busy, handlers.forSize());
      decoding.open(busyToo, handlers.forSize());
    }
    auto waiting = std::async(std::launch::async, [&] { return decoding.open(source); });
    EXPECT_TRUE(waitUntil([&] { return kvltest::workers().size() == (isRunning ? 1 : 2); }));
    source->letGo();
    EXPECT_EQ(waiting.get(), std::nullopt);
    busy->letGo();
    busyToo->letGo();
    EXPECT_TRUE(handlers.waitForAll());
  }
}

TEST_F(DecodingTest, LettingGoInTheHandlerIsNothingSpecial) {
  ImageDecoding decoding(falseOptions());
  const auto source = sourceOf("honest");
  std::promise<void> called;
  decoding.open(source, [&](std::optional<kvl::Size> size) {
    EXPECT_EQ(size, kFalseSize);
    source->letGo();
    called.set_value();
  });
  called.get_future().wait();
  EXPECT_EQ(decoding.open(source), std::nullopt);
}

TEST_F(DecodingTest, IsDestroyedWhileItRuns) {
  Handlers handlers;
  {
    ImageDecoding decoding(falseOptions());
    for (int i = 0; i < 5; ++i) decoding.open(sourceOf("sleep"), handlers.forSize());
    EXPECT_TRUE(waitUntil([] { return kvltest::workers().size() == 2; }));
  }
  EXPECT_TRUE(handlers.waitForAll());
  EXPECT_TRUE(handlers.sizes().empty());
}

TEST_F(DecodingTest, IsDestroyedByItsOwnHandler) {
  auto decoding = std::make_unique<ImageDecoding>(falseOptions());
  std::promise<void> destroyed;
  decoding->open(sourceOf("honest"), [&](std::optional<kvl::Size>) {
    decoding.reset();
    destroyed.set_value();
  });
  destroyed.get_future().wait();
}

TEST_F(DecodingTest, ASourceMayOutliveItsDecoders) {
  const auto source = sourceOf("honest");
  {
    ImageDecoding decoding(falseOptions());
    EXPECT_EQ(decoding.open(source), kFalseSize);
  }
  ImageDecoding decoding(falseOptions());
  EXPECT_FALSE(decoding.draw(source, {4, 4}).empty());
  source->letGo();
}

}  // namespace
