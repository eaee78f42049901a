/// @file
/// Queues of blocks, delayed blocks and semaphores.
#pragma once

#include <local/platform/Export.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace kvl {

/// Runs blocks. A queue that somebody holds or that has blocks left to run stays alive; letting go
/// of the last reference never waits and never drops a block.
///
/// Abstract, so that a host or a test can supply a queue of its own.
class KVL_EXPORT DispatchQueue {
 public:
  using Block = std::function<void()>;

  virtual ~DispatchQueue();

  /// Runs `block` as soon as possible, never before this call returns on the caller's thread.
  /// May be called from any thread.
  virtual void async(Block block) = 0;

  /// Runs `block` no earlier than `delay` from now, on a clock that counts the time during which
  /// the machine is suspended (`CLOCK_BOOTTIME` on Linux). A delay of zero or less means now.
  /// Delayed blocks of a serial queue run in the order of the times from which on they may.
  virtual void asyncAfter(std::chrono::nanoseconds delay, Block block) = 0;

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

/// A counting semaphore. All operations may be called from any thread.
class KVL_EXPORT Semaphore {
 public:
  explicit Semaphore(std::int64_t count = 0) noexcept : count_(count) {}
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void signal();
  /// Takes the semaphore if it is free at this moment.
  [[nodiscard]] bool tryWait();
  /// Waits at most `limit`; false when the time ran out.
  [[nodiscard]] bool waitFor(std::chrono::nanoseconds limit);
  void wait();

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  std::int64_t count_;
};

}  // namespace kvl
