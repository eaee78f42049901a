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
    if (delay > kLongest) return inner_->asyncAfter(delay, std::move(block));
    inner_->asyncAfter(kShort, [state = state_, block = std::move(block)]() mutable {
      state->run(std::move(block));
    });
  }
  [[nodiscard]] const std::string& label() const noexcept override { return inner_->label(); }

  // Until `release`, retries wait; when it returns, none is running.
  void hold() { state_->hold(); }
  void release() {
    for (auto& block : state_->release()) inner_->async(std::move(block));
  }

  // The delays asked for, in seconds.
  [[nodiscard]] std::vector<double> delays() const {
    const kvl::MutexLock lock(mutex_);
    return delays_;
  }

 private:
  // Shared with the blocks, which may outlive the queue.
  class State {
   public:
    void run(Block block) {
      {
        const kvl::MutexLock lock(mutex_);
        if (isHeld_) return kept_.push_back(std::move(block));
        ++running_;
      }
      block();
      const kvl::MutexLock lock(mutex_);
      --running_;
      idle_.notifyAll();
    }
    void hold() {
      kvl::MutexLock lock(mutex_);
      isHeld_ = true;
      while (running_ > 0) idle_.wait(lock);
    }
    std::vector<Block> release() {
      const kvl::MutexLock lock(mutex_);
      isHeld_ = false;
      return std::exchange(kept_, {});
    }

   private:
    kvl::Mutex mutex_;
    kvl::Condition idle_;
    bool isHeld_ KVL_GUARDED_BY(mutex_) = false;
    int running_ KVL_GUARDED_BY(mutex_) = 0;
    std::vector<Block> kept_ KVL_GUARDED_BY(mutex_);
  };

  static constexpr std::chrono::seconds kLongest{60};
  static constexpr std::chrono::milliseconds kShort{50};

  const std::shared_ptr<kvl::DispatchQueue> inner_;
  const std::shared_ptr<State> state_ = std::make_shared<State>();
  mutable kvl::Mutex mutex_;
  std::vector<double> delays_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvltest
