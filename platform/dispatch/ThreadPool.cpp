#include "platform/dispatch/ThreadPool.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <thread>
#include <utility>

namespace kvl::dispatch {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr nanoseconds kFirstLook = std::chrono::microseconds(500);
// While the threads compute: between one look and the next at most.
constexpr nanoseconds kLongestPace = milliseconds(16);
// Threads at once while none runs: what they take may turn out to compute.
constexpr unsigned kLargestStep = 16;
// How long nothing may move while enough threads compute; twice as long after each thread more.
constexpr nanoseconds kFirstPatience = milliseconds(100);

}  // namespace

ThreadPool::ThreadPool(Options options)
    : options_(std::move(options)),
      processors_(std::max(1U, std::thread::hardware_concurrency())) {}

unsigned ThreadPool::threadCount() const {
  const MutexLock lock(mutex_);
  return threads_;
}

void ThreadPool::post(Block block) {
  MutexLock lock(mutex_);
  blocks_.push_back(std::move(block));
  if (!idle_.empty()) {
    Worker& worker = wakeIdle();
    lock.unlock();
    worker.woken.give();
  } else if (threads_ < options_.eager) {
    ++threads_;
    lock.unlock();
    startThreads(1);
  } else if (threads_ < options_.most) {
    lookLater(kFirstLook);
  }
}

ThreadPool::Worker& ThreadPool::wakeIdle() {
  Worker& worker = *idle_.back();
  idle_.pop_back();
  worker.isWoken = true;
  return worker;
}

ThreadPool::Worker& ThreadPool::addWorker() {
  if (vacant_.empty()) vacant_.push_back(&places_.emplace_back());
  Worker& worker = *vacant_.back();
  vacant_.pop_back();
  worker.activity = ThreadActivity::ofThisThread();
  workers_.push_back(&worker);
  return worker;
}

void ThreadPool::removeWorker(Worker& worker) {
  std::erase(workers_, &worker);
  vacant_.push_back(&worker);
  --threads_;
}

// They are counted already.
void ThreadPool::startThreads(unsigned count) {
  for (; count > 0; --count) {
    const auto body = [this] { serve(); };
    const bool started = options_.start ? options_.start(options_.name, body)
                                        : core::startThread(options_.name, body);
    if (!started) break;
  }
  if (count == 0) return;
  const MutexLock lock(mutex_);
  threads_ -= count;
  lookLater(core::kUntilNextTry);
}

void ThreadPool::serve() {
  MutexLock lock(mutex_);
  Worker& self = addWorker();
  while (waitForBlock(self)) {
    Block block = std::move(blocks_.front());
    blocks_.pop_front();
    ++taken_;
    self.isBusy = true;
    lock.unlock();
    run(std::move(block));
    lock.lock();
    self.isBusy = false;
  }
  removeWorker(self);
}

// What the block holds goes with it.
void ThreadPool::run(Block block) const {
  if (options_.isOwnWork) {
    const core::ThreadWork work;
    std::exchange(block, nullptr)();
  } else {
    const core::RunningBlock running;
    std::exchange(block, nullptr)();
  }
}

bool ThreadPool::Signal::wait() noexcept {
  sem_wait(&signals_);
  return true;
}

bool ThreadPool::Signal::waitUntil(std::chrono::steady_clock::time_point deadline) noexcept {
  const auto time = deadline.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  timespec until{};
  until.tv_sec = static_cast<time_t>(seconds.count());
  until.tv_nsec = static_cast<long>(nanoseconds(time - seconds).count());
  return sem_clockwait(&signals_, CLOCK_MONOTONIC, &until) == 0 || errno != ETIMEDOUT;
}

// False when the thread has waited for too long. A thread does not end while the process exits.
bool ThreadPool::waitForBlock(Worker& self) {
  while (blocks_.empty()) {
    idle_.push_back(&self);
    self.isWoken = false;
    const auto deadline = std::chrono::steady_clock::now() + options_.idleTime;
    while (!self.isWoken) {
      const bool stays = threads_ <= options_.kept || core::isExiting();
      mutex_.unlock();
      const bool isInTime = stays ? self.woken.wait() : self.woken.waitUntil(deadline);
      mutex_.lock();
      if (!isInTime && !self.isWoken && threads_ > options_.kept && !core::isExiting()) {
        std::erase(idle_, &self);
        return false;
      }
    }
  }
  return true;
}

void ThreadPool::lookLater(nanoseconds delay) {
  if (looks_) return;
  const auto look = [this] { this->look(); };
  options_.later ? options_.later(delay, look) : fireAfter(delay, look);
  pace_ = delay;
  looks_ = true;
}

void ThreadPool::look() {
  unsigned missing = 0;
  {
    const MutexLock lock(mutex_);
    looks_ = false;
    if (blocks_.empty() || threads_ >= options_.most) return;
    missing = missingThreads();
    threads_ += missing;
    if (threads_ < options_.most) {
      lookLater(missing > 0 ? kFirstLook : std::min(pace_ * 2, kLongestPace));
    }
  }
  startThreads(missing);
}

unsigned ThreadPool::missingThreads() {
  const unsigned running = runningThreads(processors_);
  unsigned missing = 0;
  if (running == 0) {
    missing = std::max(processors_, std::min(threads_ / 2, kLargestStep));
  } else if (running < processors_) {
    missing = processors_ - running;
  } else if (isStuck()) {
    missing = 1;
  }
  const auto waiting = static_cast<unsigned>(std::min<std::size_t>(blocks_.size(), options_.most));
  return std::min({missing, waiting, options_.most - threads_});
}

// Threads that compute for long, or spin until another block has run.
bool ThreadPool::isStuck() {
  const auto now = std::chrono::steady_clock::now();
  if (taken_ != movedAt_) {
    movedAt_ = taken_;
    moved_ = now;
    patience_ = kFirstPatience;
    return false;
  }
  if (now - moved_ < patience_) return false;
  moved_ = now;
  patience_ *= 2;
  return true;
}

// The threads that run, up to `enough`. Those that are just starting count.
unsigned ThreadPool::runningThreads(unsigned enough) {
  auto running = threads_ - static_cast<unsigned>(workers_.size());
  for (Worker* worker : workers_) {
    if (running >= enough) break;
    if (!worker->isBusy || worker->activity.isRunning()) ++running;
  }
  return running;
}

}  // namespace kvl::dispatch
