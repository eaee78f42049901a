#include "platform/dispatch/Timers.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"

#include <local/platform/Mutex.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace kvl::dispatch {
namespace {

// Whether it counts the time for which the machine is suspended is the system's affair.
using Clock = std::chrono::steady_clock;

// A condition rounds longer times.
constexpr std::chrono::hours kLongestWait{1};

Clock::time_point deadlineAfter(std::chrono::nanoseconds delay) {
  const auto now = Clock::now();
  delay = std::max(delay, std::chrono::nanoseconds::zero());
  return delay > Clock::time_point::max() - now ? Clock::time_point::max() : now + delay;
}

// One thread serves the whole process, and wakes only when something is due.
class TimerService {
 public:
  void add(std::chrono::nanoseconds delay, std::function<void()> fire) {
    const MutexLock lock(mutex_);
    const auto deadline = deadlineAfter(delay);
    const bool earliest = due_.empty() || deadline < due_.begin()->first;
    due_.emplace(deadline, std::move(fire));
    // Without a thread the timers wait for the next call.
    running_ = running_ || core::startThread("korvale.timer", [this] { serve(); });
    if (earliest) changed_.notifyOne();
  }

 private:
  [[noreturn]] void serve() {
    while (true) {
      for (auto& fire : takeDue()) std::exchange(fire, nullptr)();
    }
  }

  // Waits until something is due.
  std::vector<std::function<void()>> takeDue() {
    MutexLock lock(mutex_);
    while (due_.empty() || due_.begin()->first > Clock::now()) wait(lock);
    std::vector<std::function<void()>> taken;
    const auto now = Clock::now();
    while (!due_.empty() && due_.begin()->first <= now) {
      taken.push_back(std::move(due_.begin()->second));
      due_.erase(due_.begin());
    }
    return taken;
  }

  void wait(MutexLock& lock) KVL_REQUIRES(mutex_) {
    if (due_.empty()) return changed_.wait(lock);
    const auto until = std::min(due_.begin()->first, Clock::now() + kLongestWait);
    static_cast<void>(changed_.waitUntil(lock, until));
  }

  Mutex mutex_;
  Condition changed_;
  std::multimap<Clock::time_point, std::function<void()>> due_ KVL_GUARDED_BY(mutex_);
  bool running_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace

void fireAfter(std::chrono::nanoseconds delay, std::function<void()> fire) {
  static NoDestructor<TimerService> service;
  service->add(delay, std::move(fire));
}

}  // namespace kvl::dispatch
