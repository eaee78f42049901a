#include "platform/dispatch/MainLoop.h"

#include <glib.h>

#include <atomic>
#include <chrono>

namespace kvl::dispatch {
namespace {

// How long to wait before looking again whether the thread that owns the context has let go of it.
constexpr std::chrono::milliseconds kOwnerPause{50};

// Calls of `serveMainLoopUntilFree` that are running. Who signals reads it after having had the
// semaphore's lock, and a waiter counts itself before it takes that lock: either the waiter finds
// the semaphore free, or it is found here.
std::atomic<int> waiters = 0;

struct CountedWaiter {
  CountedWaiter() { waiters.fetch_add(1, std::memory_order_relaxed); }
  ~CountedWaiter() { waiters.fetch_sub(1, std::memory_order_relaxed); }
  CountedWaiter(const CountedWaiter&) = delete;
  CountedWaiter& operator=(const CountedWaiter&) = delete;
};

}  // namespace

void serveMainLoopUntilFree(Semaphore& semaphore) {
  const CountedWaiter counted;
  while (!semaphore.tryWait()) {
    if (g_main_context_acquire(nullptr) != FALSE) {
      g_main_context_iteration(nullptr, TRUE);
      g_main_context_release(nullptr);
    } else if (semaphore.waitFor(kOwnerPause)) {
      return;
    }
  }
}

void wakeMainLoopWaiters() noexcept {
  // What wakes the context stays until it is seen, so a signal between the waiter's look at the
  // semaphore and its sleep is not lost.
  if (waiters.load(std::memory_order_relaxed) > 0) g_main_context_wakeup(nullptr);
}

}  // namespace kvl::dispatch
