// Threads of the framework's own, and whether the system has room for those of others.
#pragma once

#include <local/platform/Export.h>

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace kvl::core {

// When the system gave no thread or descriptor: how long to wait before asking again.
inline constexpr std::chrono::milliseconds kUntilNextTry{100};

// Starts a detached thread that bears `name` (15 characters at most) and leaves the host's signals
// to the host's threads. False, with nothing started, when the system has no thread or memory to
// give; the first time in a row the log says so.
[[nodiscard]] bool startThread(const char* name, std::function<void()> body) noexcept;

// Whether a few descriptors, or a thread, can be had at this moment. Asked before calls of a
// library that ends the process when it gets none. Others may take them in the meantime, so this
// makes such an end unlikely, not impossible. Exported for the library's own modules.
[[nodiscard]] KVL_EXPORT bool hasSpareDescriptors() noexcept;
[[nodiscard]] KVL_EXPORT bool hasSpareThread() noexcept;

// The process in which it was made. A child of fork(2) has none of the framework's threads, and
// whatever another thread had locked stays locked there.
class HomeProcess {
 public:
  HomeProcess() noexcept;
  [[nodiscard]] bool isThisProcess() const noexcept;

 private:
  const pid_t identifier_;
};

}  // namespace kvl::core
