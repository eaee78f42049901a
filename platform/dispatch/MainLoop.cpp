#include "platform/dispatch/MainLoop.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <glib.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <utility>

namespace kvl::dispatch {
namespace {

using Block = DispatchQueue::Block;

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

// GLib makes the default context with its first use, and ends the process when no descriptor is
// left for that.
bool ensureMainContext() {
  static std::atomic<bool> exists = false;
  if (exists) return true;
  if (!core::hasSpareDescriptors()) return false;
  g_main_context_default();
  exists = true;
  return true;
}

// A block on its way through GLib, which hands it over in order. A sanitizer that does not see into
// GLib sees that order here.
struct Posted {
  Block block;
  std::atomic<bool> isPosted = false;
};

// An idle source, because g_main_context_invoke would run the block at once on the main thread. An
// exception of the block must not pass through GLib: it ends the process here.
void attach(Block block) {
  auto* posted = new Posted{std::move(block)};
  posted->isPosted.store(true, std::memory_order_release);
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) noexcept -> gboolean {
        auto& received = *static_cast<Posted*>(data);
        if (received.isPosted.load(std::memory_order_acquire)) received.block();
        return G_SOURCE_REMOVE;
      },
      posted, [](gpointer data) noexcept { delete static_cast<Posted*>(data); });
  g_source_attach(source, nullptr);
  g_source_unref(source);
}

// The blocks that came before there was a context.
class EarlyBlocks {
 public:
  void add(Block block) {
    const MutexLock lock(mutex_);
    if (blocks_.empty() && ensureMainContext()) return attach(std::move(block));
    blocks_.push_back(std::move(block));
    if (blocks_.size() > 1) return;
    log(LogCategory::general, LogLevel::error, "the main queue waits: no descriptor is left");
    attachLater();
  }

 private:
  void attachLater() {
    fireAfter(core::kUntilNextTry, [this] {
      const MutexLock lock(mutex_);
      if (!ensureMainContext()) return attachLater();
      for (Block& block : std::exchange(blocks_, {})) attach(std::move(block));
    });
  }

  Mutex mutex_;
  std::deque<Block> blocks_ KVL_GUARDED_BY(mutex_);
};

}  // namespace

void postToMainLoop(Block block) {
  static NoDestructor<EarlyBlocks> early;
  early->add(std::move(block));
}

void serveMainLoopUntilFree(Semaphore& semaphore) {
  const CountedWaiter counted;
  while (!semaphore.tryWait()) {
    if (ensureMainContext() && g_main_context_acquire(nullptr) != FALSE) {
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
