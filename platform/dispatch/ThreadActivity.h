// Whether a thread runs or waits.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>

namespace kvl::dispatch {

// Of one thread, which lives as long as it is asked about. One look at a time.
class ThreadActivity {
 public:
  [[nodiscard]] static ThreadActivity ofThisThread() noexcept;

  // Whether the thread runs, or waits for nothing but a processor. When that cannot be told, it
  // counts as asleep: rather a thread too many than a block that waits for ever.
  [[nodiscard]] bool isRunning();

 private:
  [[maybe_unused]] pid_t thread_ = 0;
  clockid_t clock_ = 0;
  std::chrono::nanoseconds seen_{-1};  // its processor time at an earlier look
  std::chrono::steady_clock::time_point movedAt_;
};

}  // namespace kvl::dispatch
