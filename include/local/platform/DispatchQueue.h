/// @file
/// Queues of blocks and of delayed blocks.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Semaphore.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace kvl {

/// Runs blocks. A queue that somebody holds or that has blocks left to run stays alive; letting go
/// of the last reference never waits and never drops a block.
///
/// Blocks may wait, for another block too: while some of the process's worker threads sleep in
/// theirs, further threads start, up to 512 in all, and end when they have been idle for some
/// seconds. The framework's own timers and answers need none of them. When the system has no thread
/// to give, blocks wait for those there are, and for the next attempt.
///
/// An exception that leaves a block ends the process. Handing a block over throws nothing but
/// `std::bad_alloc`.
///
/// While the process exits, blocks go on running until it is gone; the framework delivers nothing
/// any more.
///
/// Abstract, so that a host or a test can supply a queue of its own.
class KVL_EXPORT DispatchQueue {
 public:
  /// What a queue runs. An exception that leaves it ends the process.
  using Block = std::function<void()>;

  virtual ~DispatchQueue();

  /// Runs `block` as soon as possible, never before this call returns on the caller's thread.
  /// May be called from any thread.
  virtual void async(Block block) = 0;

  /// Runs `block` no earlier than `delay` from now, on a clock that counts the time during which
  /// the machine is suspended (`CLOCK_BOOTTIME` on Linux). A delay of zero or less means now.
  /// Delayed blocks of a serial queue run in the order of the times from which on they may.
  virtual void asyncAfter(std::chrono::nanoseconds delay, Block block) = 0;

  /// The name that the queue was made with, for diagnostics.
  [[nodiscard]] virtual const std::string& label() const noexcept = 0;

  /// A queue that runs blocks in parallel on the process's worker threads.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> concurrent(std::string label);

  /// A queue that runs one block at a time, in the order in which they were handed over, on the
  /// process's worker threads.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> serial(std::string label);

  /// The queue of the main run loop: GLib's default `GMainContext`. Blocks run when somebody
  /// iterates that context, which GTK and Qt hosts do.
  [[nodiscard]] static std::shared_ptr<DispatchQueue> main();
};

/// Whether the calling thread is the process's main thread.
[[nodiscard]] KVL_EXPORT bool isMainThread() noexcept;

}  // namespace kvl
