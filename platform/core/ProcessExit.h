// What the framework's threads do while the process exits.
//
// At the end of `main` or with `exit`, static objects are destroyed one after the other, those of
// other libraries included, while all other threads go on. Nothing is joined then, and nothing that
// the host made is touched any more: work of ours that is under way gets a moment to end, and what
// has not begun never begins.
#pragma once

#include <local/platform/Export.h>

#include <optional>

namespace kvl::core {

// Whether the process has begun to exit. Static objects of other libraries may be gone.
[[nodiscard]] bool isExiting() noexcept;

// Has the exit begin with the framework's part of it. Called wherever hosts come in, and cheap from
// the second call of a thread on. An exit from the main thread, if that called it, or from a thread
// of ours begins before any static object goes; one from another thread begins before those go
// that were there before `standBeforeStatics` was called last.
void prepareForExit() noexcept;
// Called after a library has made static objects that its users must not outlive.
void standBeforeStatics() noexcept;
// `step` is called once, when the exit begins. It must not wait.
void addExitStep(void (*step)()) noexcept;

// A block that runs on a thread of ours: an exit that it causes is recognised as such.
class RunningBlock {
 public:
  RunningBlock() noexcept;
  ~RunningBlock();
  RunningBlock(const RunningBlock&) = delete;
  RunningBlock& operator=(const RunningBlock&) = delete;
};

// A piece of the framework's own work on a thread of ours, deliveries to the host among them. Made
// while the process exits, it never returns, so the thread must not hold a lock. The exit waits a
// moment for those that are under way. Exported for the library's own modules.
class KVL_EXPORT ThreadWork {
 public:
  ThreadWork() noexcept;
  ~ThreadWork();
  ThreadWork(const ThreadWork&) = delete;
  ThreadWork& operator=(const ThreadWork&) = delete;

 private:
  const RunningBlock block_;
};

// A delivery on a queue of the host's choice: `ThreadWork` on a thread of ours. On the main thread
// and on threads of the host's own it does nothing, since the host may wait for those at its exit.
class QueuedDelivery {
 public:
  QueuedDelivery() noexcept;
  ~QueuedDelivery() = default;
  QueuedDelivery(const QueuedDelivery&) = delete;
  QueuedDelivery& operator=(const QueuedDelivery&) = delete;

 private:
  std::optional<ThreadWork> work_;
};

// A call into a library that does not survive the exit. False while the process exits: then the
// library must not be called. The exit waits for calls under way, though not for ever.
class LibraryUse {
 public:
  LibraryUse() noexcept;
  ~LibraryUse();
  LibraryUse(const LibraryUse&) = delete;
  LibraryUse& operator=(const LibraryUse&) = delete;
  [[nodiscard]] explicit operator bool() const noexcept { return isAllowed_; }

 private:
  bool isAllowed_;
};

}  // namespace kvl::core
