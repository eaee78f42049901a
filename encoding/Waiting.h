// Waiting for what a completion handler brings.
#pragma once

#include "platform/core/ProcessExit.h"

#include <local/KVLEncodingSession.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Mutex.h>

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace kvl::encoding {

// How long anybody but the main thread waits.
inline constexpr std::chrono::seconds kLongestWait{5};

// `KVLEncoding::waitForSemaphore` with another limit for threads that are not the main one.
[[nodiscard]] std::optional<Error> waitForSemaphore(Semaphore& semaphore,
                                                    const KVLEncoding::WaitReason& reason,
                                                    std::chrono::nanoseconds limit);

// Where a completion leaves its result. Completion and waiter share it, so that a completion that
// comes after the wait has given up still has somewhere to put it.
template <class Result>
class ResultSlot {
 public:
  void fill(Result result) {
    {
      const MutexLock lock(mutex_);
      result_ = std::move(result);
    }
    filled_.signal();
  }

  [[nodiscard]] Result take() {
    const MutexLock lock(mutex_);
    return std::exchange(result_, {});
  }

  [[nodiscard]] Semaphore& filled() noexcept { return filled_; }

 private:
  Mutex mutex_;
  Result result_ KVL_GUARDED_BY(mutex_);
  Semaphore filled_;
};

// Starts a fetch with a completion handler and waits for its result, an optional or a pointer.
//
// The outcome of the wait takes the place of the fetch's own error, which nobody hears of: `error`
// is set when the time ran out, and else left as it is.
template <class Result, class Start>
[[nodiscard]] Result waitForFetch(const Start& start, const KVLEncoding::WaitReason& reason,
                                  std::chrono::nanoseconds limit, std::optional<Error>* error) {
  if (core::isExiting()) {  // nothing is delivered any more
    storeError(error, Error(NSPOSIXErrorDomain, kTimedOutPOSIXCode));
    return {};
  }
  const auto slot = std::make_shared<ResultSlot<Result>>();
  start([slot](Result result, const URLResponseRef&, const std::optional<Error>&) {
    slot->fill(std::move(result));
  });
  if (auto timeout = waitForSemaphore(slot->filled(), reason, limit)) {
    storeError(error, std::move(timeout));
  }
  return slot->take();
}

}  // namespace kvl::encoding
