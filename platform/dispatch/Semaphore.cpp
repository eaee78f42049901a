#include "platform/dispatch/MainLoop.h"

#include <local/platform/DispatchQueue.h>

#include <algorithm>

namespace kvl {
namespace {

// The clock's present time is added to it, which must not overflow.
constexpr std::chrono::hours kLongestWait{24 * 365 * 100};

}  // namespace

void Semaphore::signal() {
  {
    // Notified under the lock: a waiter may destroy the semaphore as soon as it has it.
    std::lock_guard lock(mutex_);
    ++count_;
    condition_.notify_one();
  }
  dispatch::wakeMainLoopWaiters();
}

bool Semaphore::tryWait() {
  std::lock_guard lock(mutex_);
  if (count_ <= 0) return false;
  --count_;
  return true;
}

bool Semaphore::waitFor(std::chrono::nanoseconds limit) {
  std::unique_lock lock(mutex_);
  const auto bounded = std::min<std::chrono::nanoseconds>(limit, kLongestWait);
  if (!condition_.wait_for(lock, bounded, [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}

void Semaphore::wait() {
  std::unique_lock lock(mutex_);
  condition_.wait(lock, [this] { return count_ > 0; });
  --count_;
}

}  // namespace kvl
