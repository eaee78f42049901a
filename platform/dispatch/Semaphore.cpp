#include "platform/dispatch/MainLoop.h"

#include <local/platform/Mutex.h>
#include <local/platform/Semaphore.h>

#include <algorithm>

namespace kvl {
namespace {

// The clock's present time is added to it, which must not overflow.
constexpr std::chrono::hours kLongestWait{24 * 365 * 100};

}  // namespace

struct Semaphore::Implementation {
  explicit Implementation(std::int64_t initial) : count(initial) {}

  Mutex mutex;
  Condition signalled;
  std::int64_t count KVL_GUARDED_BY(mutex);
};

Semaphore::Semaphore(std::int64_t count)
    : implementation_(std::make_unique<Implementation>(count)) {}
Semaphore::~Semaphore() = default;

void Semaphore::signal() {
  Implementation& self = *implementation_;
  {
    // Notified under the lock: a waiter may destroy the semaphore as soon as it has it.
    MutexLock lock(self.mutex);
    ++self.count;
    self.signalled.notifyOne();
  }
  dispatch::wakeMainLoopWaiters();
}

bool Semaphore::tryWait() {
  Implementation& self = *implementation_;
  MutexLock lock(self.mutex);
  if (self.count <= 0) return false;
  --self.count;
  return true;
}

bool Semaphore::waitFor(std::chrono::nanoseconds limit) {
  Implementation& self = *implementation_;
  MutexLock lock(self.mutex);
  const auto deadline =
      std::chrono::steady_clock::now() + std::min<std::chrono::nanoseconds>(limit, kLongestWait);
  while (self.count <= 0) {
    if (!self.signalled.waitUntil(lock, deadline) && self.count <= 0) return false;
  }
  --self.count;
  return true;
}

void Semaphore::wait() {
  Implementation& self = *implementation_;
  MutexLock lock(self.mutex);
  while (self.count <= 0) self.signalled.wait(lock);
  --self.count;
}

}  // namespace kvl
