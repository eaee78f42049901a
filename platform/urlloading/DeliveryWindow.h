// How much of a body waits for whoever takes it.
#pragma once

#include <local/platform/Mutex.h>

#include <cstddef>

namespace kvl::urlloading {

// Counts the bytes between the I/O thread, which adds, and the session object's queue, which takes
// away, and says when the sender is held back. Thread-safe.
class DeliveryWindow {
 public:
  explicit DeliveryWindow(std::size_t limit) noexcept : limit_(limit) {}

  // Whether there is room beside `collected` bytes that are about to be added. Without, the sender
  // is held back until `release` or `resume` says so.
  [[nodiscard]] bool isOpen(std::size_t collected);
  // Adds `count` bytes, however many wait already.
  void add(std::size_t count);
  // Takes `count` bytes away. True when a held sender may go on: once, at half of the limit.
  [[nodiscard]] bool release(std::size_t count);

  // Shuts the window, however few bytes wait, until `resume` was called as often.
  void suspend();
  // True when the window is shut no more. It may be as full as before: the sender finds out.
  [[nodiscard]] bool resume();
  // Also after that, until `noteResumed`: the sender does not know yet that its silence counts
  // again.
  [[nodiscard]] bool isSuspended() const;
  void noteResumed();

 private:
  const std::size_t limit_;
  mutable Mutex mutex_;
  std::size_t waiting_ KVL_GUARDED_BY(mutex_) = 0;
  std::size_t suspensions_ KVL_GUARDED_BY(mutex_) = 0;
  bool isResuming_ KVL_GUARDED_BY(mutex_) = false;
  bool held_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace kvl::urlloading
