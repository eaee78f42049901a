// A queue whose time stands still until the test moves it.
#pragma once

#include <local/platform/Date.h>
#include <local/platform/DispatchQueue.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {

// It has a wall clock that moves with it, for the test to hand in. Blocks run inside the calls of
// the test, on the test's thread.
class DrivenQueue final : public kvl::DispatchQueue {
 public:
  using Nanoseconds = std::chrono::nanoseconds;

  void async(Block block) override { asyncAfter(Nanoseconds::zero(), std::move(block)); }

  void asyncAfter(Nanoseconds delay, Block block) override {
    const std::lock_guard lock(mutex_);
    pending_.emplace(now_ + delay, std::move(block));
    delays_.push_back(delay);
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

  // Runs everything that falls due up to `step` from now, in order of time.
  void advance(Nanoseconds step) {
    const auto end = now() + step;
    while (runNextUpTo(end)) {
    }
    const std::lock_guard lock(mutex_);
    now_ = end;
  }

  // Runs what is due without any time passing.
  void runDue() { advance(Nanoseconds::zero()); }

  // The delays asked for since the last call, in seconds.
  [[nodiscard]] std::vector<double> takeDelays() {
    const std::lock_guard lock(mutex_);
    std::vector<double> seconds;
    for (const auto delay : std::exchange(delays_, {})) {
      seconds.push_back(std::chrono::duration<double>(delay).count());
    }
    return seconds;
  }

  [[nodiscard]] std::size_t pendingCount() const {
    const std::lock_guard lock(mutex_);
    return pending_.size();
  }

  // Forgets every pending block, which lets go of what the blocks hold.
  void dropPending() {
    std::multimap<Nanoseconds, Block> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(pending_);
  }

  [[nodiscard]] Nanoseconds now() const {
    const std::lock_guard lock(mutex_);
    return now_;
  }

  [[nodiscard]] kvl::Date wallTime() const {
    return kStart.adding(std::chrono::duration<double>(now()).count());
  }

  static inline const kvl::Date kStart{8.0e8};

 private:
  bool runNextUpTo(Nanoseconds end) {
    Block block;
    {
      const std::lock_guard lock(mutex_);
      if (pending_.empty() || pending_.begin()->first > end) return false;
      now_ = std::max(now_, pending_.begin()->first);
      block = std::move(pending_.begin()->second);
      pending_.erase(pending_.begin());
    }
    block();
    return true;
  }

  const std::string label_ = "driven";
  mutable std::mutex mutex_;
  Nanoseconds now_{0};
  std::multimap<Nanoseconds, Block> pending_;
  std::vector<Nanoseconds> delays_;
};

}  // namespace kvltest
