// A queue on which retries follow at once.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {

// Hardly delays blocks and records the delays, so that tests check them without waiting. What is
// due in more than a minute, such as the renewal of a good identity, keeps its delay.
class ImpatientQueue final : public kvl::DispatchQueue {
 public:
  explicit ImpatientQueue(
      std::shared_ptr<kvl::DispatchQueue> inner = kvl::DispatchQueue::concurrent("impatient"))
      : inner_(std::move(inner)) {}

  void async(Block block) override { inner_->async(std::move(block)); }
  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    {
      const kvl::MutexLock lock(mutex_);
      delays_.push_back(std::chrono::duration<double>(delay).count());
    }
    inner_->asyncAfter(delay > kLongest ? delay : kShort, std::move(block));
  }
  [[nodiscard]] const std::string& label() const noexcept override { return inner_->label(); }

  // The delays asked for, in seconds.
  [[nodiscard]] std::vector<double> delays() const {
    const kvl::MutexLock lock(mutex_);
    return delays_;
  }

 private:
  static constexpr std::chrono::seconds kLongest{60};
  static constexpr std::chrono::milliseconds kShort{50};

  const std::shared_ptr<kvl::DispatchQueue> inner_;
  mutable kvl::Mutex mutex_;
  std::vector<double> delays_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvltest
