// Queues of blocks: the worker threads and the timer that they share, and the main run loop's
// queue.
#include "platform/core/BlockedSignals.h"
#include "platform/core/NoDestructor.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <glib.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/strand.hpp>
#include <cstdint>
#include <ctime>
#include <limits>
#include <map>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace kvl {
namespace {

// More threads than cores, since hosts' handlers may block.
constexpr unsigned kFewestThreads = 4;
constexpr unsigned kMostThreads = 8;

// The threads that all queues of the process share. They start with the first queue, are detached
// and live as long as the process; the pool is never destroyed, so that nothing has to be joined
// while the process exits.
struct WorkerPool {
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(context);

  WorkerPool() {
    const core::BlockedSignals blocked;
    const auto threads =
        std::clamp(std::thread::hardware_concurrency(), kFewestThreads, kMostThreads);
    startThread();
    try {
      for (unsigned i = 1; i < threads; ++i) startThread();
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch)
      // Fewer threads do; without a single one nothing would ever run.
    }
  }

  void startThread() {
    std::thread([this] {
      pthread_setname_np(pthread_self(), "korvale.worker");
      context.run();
    }).detach();
  }
};

asio::io_context& workerContext() {
  static NoDestructor<WorkerPool> pool;
  return pool->context;
}

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

// Delayed blocks on CLOCK_BOOTTIME, the clock that also counts while the machine is suspended. One
// timer descriptor serves the whole process, and it is armed only while something is due.
class TimerService {
 public:
  TimerService()
      : descriptor_(workerContext(), timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC)) {}

  void add(Nanoseconds delay, std::function<void()> fire) {
    MutexLock lock(mutex_);
    const auto deadline = deadlineAfter(delay);
    const bool earliest = due_.empty() || deadline < due_.begin()->first;
    due_.emplace(deadline, std::move(fire));
    if (earliest) arm();
    if (!std::exchange(waiting_, true)) wait();
  }

 private:
  void arm() KVL_REQUIRES(mutex_) {
    const auto deadline = due_.begin()->first;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline);
    itimerspec setting{};
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (deadline - seconds).count();
    timerfd_settime(descriptor_.native_handle(), TFD_TIMER_ABSTIME, &setting, nullptr);
  }

  void wait() KVL_REQUIRES(mutex_) {
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                           [this](const asio::error_code&) { fireDue(); });
  }

  // Waits again only after all have fired, or a later timer could overtake these.
  void fireDue() {
    for (auto& fire : takeDue()) fire();
    MutexLock lock(mutex_);
    waiting_ = !due_.empty();
    if (!waiting_) return;
    arm();
    wait();
  }

  std::vector<std::function<void()>> takeDue() {
    std::vector<std::function<void()>> taken;
    MutexLock lock(mutex_);
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

  Mutex mutex_;
  asio::posix::stream_descriptor descriptor_ KVL_GUARDED_BY(mutex_);
  std::multimap<Nanoseconds, std::function<void()>> due_ KVL_GUARDED_BY(mutex_);
  bool waiting_ KVL_GUARDED_BY(mutex_) = false;  // also while what is due is fired
};

// Calls `fire` on a worker thread no earlier than `delay` from now, one after the other by their
// deadlines; those of one deadline by the order of the calls. `fire` must be quick, since others
// wait for it.
void fireAfter(Nanoseconds delay, std::function<void()> fire) {
  static NoDestructor<TimerService> service;
  service->add(delay, std::move(fire));
}

// Posts to an Asio executor: the pool's own for a concurrent queue, a strand for a serial one.
template <class Executor>
class PoolQueue final : public DispatchQueue {
 public:
  PoolQueue(std::string label, Executor executor)
      : label_(std::move(label)), executor_(std::move(executor)) {}

  void async(Block block) override { asio::post(executor_, std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    fireAfter(delay, [executor = executor_, block = std::move(block)]() mutable {
      asio::post(executor, std::move(block));
    });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  const Executor executor_;
};

template <class Executor>
std::shared_ptr<DispatchQueue> makeQueue(std::string label, Executor executor) {
  return std::make_shared<PoolQueue<Executor>>(std::move(label), std::move(executor));
}

using Block = DispatchQueue::Block;

// An idle source, because g_main_context_invoke would run the block at once on the main thread.
void postToMainContext(Block block) {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        (*static_cast<Block*>(data))();
        return G_SOURCE_REMOVE;
      },
      new Block(std::move(block)), [](gpointer data) { delete static_cast<Block*>(data); });
  g_source_attach(source, nullptr);
  g_source_unref(source);
}

class MainQueue final : public DispatchQueue {
 public:
  void async(Block block) override { postToMainContext(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    fireAfter(delay, [block = std::move(block)]() mutable { postToMainContext(std::move(block)); });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_ = "korvale.local.main";
};

}  // namespace

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::concurrent(std::string label) {
  return makeQueue(std::move(label), workerContext().get_executor());
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  return makeQueue(std::move(label), asio::make_strand(workerContext()));
}

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
  static NoDestructor<std::shared_ptr<DispatchQueue>> queue(std::make_shared<MainQueue>());
  return *queue;
}

bool isMainThread() noexcept {
  return syscall(SYS_gettid) == getpid();
}

}  // namespace kvl
