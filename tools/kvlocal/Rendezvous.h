// The one place where the program waits: for what handlers on other threads bring, for a deadline
// and for the user's interrupt.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace kvlocal {

// Shared with handlers that may outlive the command, so hold it by `std::shared_ptr`.
class Rendezvous {
 public:
  enum class Result { met, late, interrupted };
  using Limit = std::optional<std::chrono::steady_clock::time_point>;

  // Changes the state that a condition looks at. Any thread.
  template <class Change>
  void change(Change apply) {
    {
      std::lock_guard lock(mutex_);
      apply();
    }
    condition_.notify_all();
  }

  // Waits until `isMet`, which is called with the lock held. A met condition goes before all else.
  template <class Condition>
  [[nodiscard]] Result wait(Limit limit, Condition isMet) {
    std::unique_lock lock(mutex_);
    const auto isOver = [&] { return isMet() || interrupted_; };
    if (limit) {
      condition_.wait_until(lock, *limit, isOver);
    } else {
      condition_.wait(lock, isOver);
    }
    if (isMet()) return Result::met;
    return interrupted_ ? Result::interrupted : Result::late;
  }

  // Whether the limit has passed or the user has interrupted, for whoever finds conditions met each
  // time and would never see it.
  [[nodiscard]] bool isOver(Limit limit) const {
    std::lock_guard lock(mutex_);
    return interrupted_ || (limit && std::chrono::steady_clock::now() >= *limit);
  }

  void interrupt() {
    change([this] { interrupted_ = true; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable condition_;
  bool interrupted_ = false;
};

}  // namespace kvlocal
