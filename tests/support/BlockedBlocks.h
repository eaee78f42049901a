// Blocks that keep their threads until the test lets them go on.
#pragma once

#include <local/platform/Semaphore.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <utility>

namespace kvltest {

// Whatever is still blocked when it is destroyed goes on then.
class BlockedBlocks {
 public:
  BlockedBlocks() = default;
  BlockedBlocks(const BlockedBlocks&) = delete;
  BlockedBlocks& operator=(const BlockedBlocks&) = delete;
  ~BlockedBlocks() { release(); }

  template <class Target>
  void post(Target&& target, int count) {
    count_ += count;
    for (int i = 0; i < count; ++i) {
      target([begun = begun_, gate = gate_, ended = ended_] {
        begun->signal();
        gate->wait();
        ended->signal();
      });
    }
  }
  [[nodiscard]] bool allHaveBegun() {
    for (int i = 0; i < count_; ++i) {
      if (!begun_->waitFor(kLongest)) return false;
    }
    return true;
  }
  void release() {
    const int count = std::exchange(count_, 0);
    for (int i = 0; i < count; ++i) gate_->signal();
    for (int i = 0; i < count; ++i) EXPECT_TRUE(ended_->waitFor(kLongest));
  }

 private:
  static constexpr std::chrono::seconds kLongest{60};

  int count_ = 0;
  std::shared_ptr<kvl::Semaphore> begun_ = std::make_shared<kvl::Semaphore>();
  std::shared_ptr<kvl::Semaphore> gate_ = std::make_shared<kvl::Semaphore>();
  std::shared_ptr<kvl::Semaphore> ended_ = std::make_shared<kvl::Semaphore>();
};

}  // namespace kvltest
