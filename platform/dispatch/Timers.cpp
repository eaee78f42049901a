#include "platform/dispatch/Timers.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/Threads.h"

#include <local/platform/Mutex.h>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <map>
#include <utility>
#include <vector>

namespace kvl::dispatch {
namespace {

using Nanoseconds = std::chrono::nanoseconds;

// Without a timer descriptor, how long to sleep before the clock is looked at again.
constexpr std::chrono::seconds kLongestDoze{1};

Nanoseconds bootTime() {
  timespec time{};
  clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::seconds(time.tv_sec) + Nanoseconds(time.tv_nsec);
}

Nanoseconds deadlineAfter(Nanoseconds delay) {
  const auto now = bootTime();
  delay = std::max(delay, Nanoseconds::zero());
  return delay > Nanoseconds::max() - now ? Nanoseconds::max() : now + delay;
}

// One timer descriptor serves the whole process, and it is armed only while something is due. As
// long as the process has no descriptor left, the thread sleeps in short pieces instead, since no
// condition counts on that clock.
class TimerService {
 public:
  void add(Nanoseconds delay, std::function<void()> fire) {
    const MutexLock lock(mutex_);
    const auto deadline = deadlineAfter(delay);
    const bool earliest = due_.empty() || deadline < due_.begin()->first;
    due_.emplace(deadline, std::move(fire));
    // Without a thread the timers wait for the next call.
    running_ = running_ || core::startThread("korvale.timer", [this] { serve(); });
    if (earliest) wake();
  }

 private:
  [[noreturn]] void serve() {
    while (true) {
      for (auto& fire : takeDue()) std::exchange(fire, nullptr)();
    }
  }

  void wake() KVL_REQUIRES(mutex_) {
    if (descriptor_ < 0) return changed_.notifyOne();
    const auto deadline = due_.begin()->first;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (deadline - seconds).count();
    timerfd_settime(descriptor_, TFD_TIMER_ABSTIME, &setting, nullptr);
  }

  // Waits until something is due.
  std::vector<std::function<void()>> takeDue() {
    MutexLock lock(mutex_);
    while (due_.empty() || due_.begin()->first > bootTime()) {
      if (!hasDescriptor()) {
        doze(lock);
        continue;
      }
      if (!due_.empty()) wake();
      const int descriptor = descriptor_;
      lock.unlock();
      awaitExpiration(descriptor);
      lock.lock();
    }
    std::vector<std::function<void()>> taken;
    const auto now = bootTime();
    while (!due_.empty() && due_.begin()->first <= now) {
      taken.push_back(std::move(due_.begin()->second));
      due_.erase(due_.begin());
    }
    return taken;
  }

  [[nodiscard]] bool hasDescriptor() KVL_REQUIRES(mutex_) {
    if (descriptor_ < 0) descriptor_ = timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC);
    return descriptor_ >= 0;
  }

  static void awaitExpiration(int descriptor) {
    std::uint64_t expirations = 0;
    [[maybe_unused]] const auto count = read(descriptor, &expirations, sizeof expirations);
  }

  void doze(MutexLock& lock) KVL_REQUIRES(mutex_) {
    if (due_.empty()) return changed_.wait(lock);
    const auto left = std::min<Nanoseconds>(due_.begin()->first - bootTime(), kLongestDoze);
    static_cast<void>(changed_.waitUntil(lock, std::chrono::steady_clock::now() + left));
  }

  Mutex mutex_;
  Condition changed_;
  std::multimap<Nanoseconds, std::function<void()>> due_ KVL_GUARDED_BY(mutex_);
  bool running_ KVL_GUARDED_BY(mutex_) = false;
  // Made by the thread, and there from then on.
  int descriptor_ KVL_GUARDED_BY(mutex_) = -1;
};

}  // namespace

void fireAfter(std::chrono::nanoseconds delay, std::function<void()> fire) {
  static NoDestructor<TimerService> service;
  service->add(delay, std::move(fire));
}

}  // namespace kvl::dispatch
