#include "platform/dispatch/ThreadActivity.h"

#include <pthread.h>

#include <optional>
#include <utility>

namespace kvl::dispatch {
namespace {

using std::chrono::nanoseconds;

constexpr std::chrono::milliseconds kLongestTurnOfOthers{10};

std::optional<nanoseconds> timeOf(clockid_t clock) {
  timespec time{};
  if (clock_gettime(clock, &time) != 0) return std::nullopt;
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

}  // namespace

ThreadActivity ThreadActivity::ofThisThread() noexcept {
  ThreadActivity activity;
  if (pthread_getcpuclockid(pthread_self(), &activity.clock_) == 0) {
    activity.seen_ = timeOf(activity.clock_).value_or(nanoseconds(-1));
  }
  activity.movedAt_ = std::chrono::steady_clock::now();
  return activity;
}

// One that has used processor time lately. Whether one that has not sleeps, or others have the
// processor for so long, nobody tells.
bool ThreadActivity::isRunning() {
  const auto used = timeOf(clock_);
  if (seen_.count() < 0 || !used) return false;
  const auto now = std::chrono::steady_clock::now();
  if (std::exchange(seen_, *used) != *used) movedAt_ = now;
  return now - movedAt_ < kLongestTurnOfOthers;
}

}  // namespace kvl::dispatch
