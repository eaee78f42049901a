/// @file
/// Semaphores.
#pragma once

#include <local/platform/Export.h>

#include <chrono>
#include <cstdint>
#include <memory>

namespace kvl {

/// A counting semaphore. All operations may be called from any thread.
class KVL_EXPORT Semaphore {
 public:
  /// @param count how many waits are served before the first signal
  explicit Semaphore(std::int64_t count = 0);
  /// A thread that has taken the semaphore may destroy it while the call that signalled returns.
  ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  /// Lets one that waits go on, or the next one that comes.
  void signal();
  /// Takes the semaphore if it is free at this moment.
  [[nodiscard]] bool tryWait();
  /// Waits at most `limit`; false when the time ran out.
  [[nodiscard]] bool waitFor(std::chrono::nanoseconds limit);
  /// Takes the semaphore, waiting for as long as that needs.
  void wait();

 private:
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl
