// The one place where the program waits: for what handlers on other threads bring, for a deadline
// and for the user's interrupt.
#pragma once

#include <local/platform/Mutex.h>

#include <chrono>
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
      const kvl::MutexLock lock(mutex_);
      apply();
    }
    condition_.notifyAll();
  }

  // Waits until `isMet`, which is called with the lock held. A met condition goes before all else.
  template <class IsMet>
  [[nodiscard]] Result wait(Limit limit, const IsMet& isMet) {
    kvl::MutexLock lock(mutex_);
    while (!isMet() && !interrupted_) {
      if (!limit) {
        condition_.wait(lock);
      } else if (!condition_.waitUntil(lock, *limit)) {
        break;
      }
    }
    if (isMet()) return Result::met;
    return interrupted_ ? Result::interrupted : Result::late;
  }

  // Whether the limit has passed or the user has interrupted, for whoever finds conditions met each
  // time and would never see it.
  [[nodiscard]] bool isOver(Limit limit) const {
    const kvl::MutexLock lock(mutex_);
    return interrupted_ || (limit && std::chrono::steady_clock::now() >= *limit);
  }

  // `number` is the signal that did it, if one did.
  void interrupt(int number = 0) {
    {
      const kvl::MutexLock lock(mutex_);
      interrupted_ = true;
      interruptedBy_ = number;
    }
    condition_.notifyAll();
  }
  [[nodiscard]] int interruptedBy() const {
    const kvl::MutexLock lock(mutex_);
    return interruptedBy_;
  }

  // Waits until `isMet`, even if the user has interrupted before.
  template <class IsMet>
  void waitInAnyCase(const IsMet& isMet) {
    kvl::MutexLock lock(mutex_);
    while (!isMet()) condition_.wait(lock);
  }

 private:
  mutable kvl::Mutex mutex_;
  kvl::Condition condition_;
  bool interrupted_ KVL_GUARDED_BY(mutex_) = false;
  int interruptedBy_ KVL_GUARDED_BY(mutex_) = 0;
};

// So many seconds from now; never without a number.
inline Rendezvous::Limit limitAfter(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  using std::chrono::steady_clock;
  return steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                   std::chrono::duration<double>(*seconds));
}

}  // namespace kvlocal
