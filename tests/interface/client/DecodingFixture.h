// A test whose images leave no process and no descriptor behind, and what its handlers were given.
#pragma once

#include "tests/interface/client/FalseDecoding.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/DispatchQueue.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace kvltest {

using Sizes = std::vector<std::optional<kvl::Size>>;

// Collects what handlers are given, and knows of those that were destroyed uncalled.
class Handlers {
 public:
  [[nodiscard]] ImageDecoding::SizeHandler forSize() {
    return [this, held = guard()](std::optional<kvl::Size> size) {
      const std::lock_guard lock(mutex_);
      sizes_.push_back(size);
    };
  }
  [[nodiscard]] Sizes sizes() const {
    const std::lock_guard lock(mutex_);
    return sizes_;
  }
  [[nodiscard]] bool waitForAll() const {
    return waitUntil([this] { return alive_ == 0; });
  }
  [[nodiscard]] int alive() const { return alive_; }

 private:
  std::shared_ptr<void> guard() {
    ++alive_;
    return {nullptr, [this](void*) { --alive_; }};
  }

  mutable std::mutex mutex_;
  Sizes sizes_;
  std::atomic<int> alive_ = 0;
};

class DecodingTest : public testing::Test {
 protected:
  // Whatever a test does, none of its processes and descriptors stays.
  ~DecodingTest() override {
    EXPECT_TRUE(waitUntil([] { return childrenOf(getpid()).empty(); }));
    EXPECT_TRUE(waitUntil([this] { return descriptorCount() <= descriptors_; }));
  }

  static ImageDecoding::Options shortShare() {
    auto options = falseOptions();
    options.share = std::chrono::milliseconds(20);
    return options;
  }

  const LogCapture log_;  // the system's log would need a descriptor
  const std::size_t descriptors_ = (startTimers(), descriptorCount());

 private:
  // The framework's timers and threads keep descriptors of their own.
  static void startTimers() {
    std::promise<void> done;
    kvl::DispatchQueue::concurrent("test")->asyncAfter(std::chrono::nanoseconds(1),
                                                       [&done] { done.set_value(); });
    done.get_future().wait();
  }
};

}  // namespace kvltest
