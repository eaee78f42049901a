#include "platform/dispatch/TimerService.h"

#include "platform/dispatch/WorkerPool.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <cstdint>
#include <ctime>
#include <limits>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace kvl::dispatch {
namespace {

using Nanoseconds = std::chrono::nanoseconds;

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

class TimerService {
 public:
  TimerService()
      : descriptor_(workerContext(), timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC)) {}

  void add(Nanoseconds delay, std::function<void()> fire) {
    std::lock_guard lock(mutex_);
    const auto deadline = deadlineAfter(delay);
    const bool earliest = due_.empty() || deadline < due_.begin()->first;
    due_.emplace(deadline, std::move(fire));
    if (earliest) arm();
    if (!std::exchange(waiting_, true)) wait();
  }

 private:
  void arm() {
    const auto deadline = due_.begin()->first;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (deadline - seconds).count();
    timerfd_settime(descriptor_.native_handle(), TFD_TIMER_ABSTIME, &setting, nullptr);
  }

  void wait() {
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                           [this](const asio::error_code&) { fireDue(); });
  }

  // Waits again only after all have fired, or a later timer could overtake these.
  void fireDue() {
    for (auto& fire : takeDue()) fire();
    const std::lock_guard lock(mutex_);
    waiting_ = !due_.empty();
    if (!waiting_) return;
    arm();
    wait();
  }

  std::vector<std::function<void()>> takeDue() {
    std::vector<std::function<void()>> taken;
    const std::lock_guard lock(mutex_);
    std::uint64_t expirations = 0;
    [[maybe_unused]] const auto count =
        read(descriptor_.native_handle(), &expirations, sizeof expirations);
    const auto now = bootTime();
    while (!due_.empty() && due_.begin()->first <= now) {
      taken.push_back(std::move(due_.begin()->second));
      due_.erase(due_.begin());
    }
    return taken;
  }

  std::mutex mutex_;
  asio::posix::stream_descriptor descriptor_;
  std::multimap<Nanoseconds, std::function<void()>> due_;
  bool waiting_ = false;  // also while what is due is fired
};

}  // namespace

void fireAfter(std::chrono::nanoseconds delay, std::function<void()> fire) {
  static auto& service = *new TimerService;
  service.add(delay, std::move(fire));
}

}  // namespace kvl::dispatch
