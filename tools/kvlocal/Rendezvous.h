// The one place where the program waits: for what handlers on other threads bring, for a deadline
// and for the user's interrupt.
#pragma once

#include <local/platform/Mutex.h>

#include <signal.h>

#include <chrono>
#include <optional>
#include <utility>

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

  // `number` is the signal that did it, if one did. False when the user has interrupted before and
  // nobody has taken that or says that it will be taken.
  bool interrupt(int number = 0) {
    bool isHeard = false;
    {
      const kvl::MutexLock lock(mutex_);
      isHeard = !interrupted_ || isTaking_;
      // Before it is taken, one that asks for the end goes before a terminal's, and one that says
      // so plainly before a hang-up.
      const bool isLess = number == SIGINT || (number == SIGHUP && interruptedBy_ == SIGTERM);
      if (!interrupted_ || !isLess) interruptedBy_ = number;
      interrupted_ = true;
    }
    condition_.notifyAll();
    return isHeard;
  }
  // The signal that did it; from now on the user has not interrupted.
  int takeInterrupt() {
    const kvl::MutexLock lock(mutex_);
    interrupted_ = false;
    return std::exchange(interruptedBy_, 0);
  }
  // Whether interrupts are taken, or followed by the end, within seconds.
  void setTaking(bool isTaking) {
    const kvl::MutexLock lock(mutex_);
    isTaking_ = isTaking;
  }

 private:
  mutable kvl::Mutex mutex_;
  kvl::Condition condition_;
  bool interrupted_ KVL_GUARDED_BY(mutex_) = false;
  int interruptedBy_ KVL_GUARDED_BY(mutex_) = 0;
  bool isTaking_ KVL_GUARDED_BY(mutex_) = false;
};

// So many seconds from now; never without a number.
inline Rendezvous::Limit limitAfter(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  using std::chrono::steady_clock;
  return steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                   std::chrono::duration<double>(*seconds));
}

}  // namespace kvlocal
