#include "platform/dispatch/ThreadQueue.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"

#include <local/platform/Mutex.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kvl {
namespace {

constexpr std::size_t kLongestThreadName = 15;  // the kernel's limit

// What the queue and its thread share. The thread holds it, so that a queue can be let go of while
// blocks wait, also inside one of them.
class WaitingBlocks : public std::enable_shared_from_this<WaitingBlocks> {
 public:
  using Block = DispatchQueue::Block;

  WaitingBlocks(const std::string& label, std::chrono::nanoseconds idleTime)
      : name_(label.substr(0, kLongestThreadName)), idleTime_(idleTime) {}

  void add(Block block) {
    const MutexLock lock(mutex_);
    blocks_.push_back(std::move(block));
    if (!std::exchange(started_, true)) startThread();
    changed_.notifyOne();
  }

  // None are added any more.
  void close() {
    const MutexLock lock(mutex_);
    closed_ = true;
    changed_.notifyOne();
  }

 private:
  void startThread() {
    const bool started =
        core::startThread(name_.c_str(), [self = shared_from_this()] { self->serve(); });
    if (started) return;
    dispatch::fireAfter(core::kUntilNextTry, [self = shared_from_this()] { self->startThread(); });
  }

  void serve() {
    while (auto block = takeNext()) {
      const core::ThreadWork work;
      // What a block holds goes with it, before the next one runs.
      (*std::exchange(block, std::nullopt))();
    }
  }

  // Waits for a block; nothing when there will be none, or has been none for long, after which the
  // thread ends. It does not while the process exits.
  std::optional<Block> takeNext() {
    MutexLock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + idleTime_;
    bool isInTime = true;
    while (blocks_.empty() && !closed_ && isInTime) {
      if (core::isExiting()) {
        changed_.wait(lock);
      } else {
        isInTime = changed_.waitUntil(lock, deadline) || core::isExiting();
      }
    }
    if (blocks_.empty()) {
      started_ = false;
      return std::nullopt;
    }
    std::optional<Block> next(std::move(blocks_.front()));
    blocks_.pop_front();
    return next;
  }

  const std::string name_;
  const std::chrono::nanoseconds idleTime_;
  Mutex mutex_;
  Condition changed_;
  std::deque<Block> blocks_ KVL_GUARDED_BY(mutex_);
  bool started_ KVL_GUARDED_BY(mutex_) = false;
  bool closed_ KVL_GUARDED_BY(mutex_) = false;
};

class ThreadQueue final : public DispatchQueue, public std::enable_shared_from_this<ThreadQueue> {
 public:
  ThreadQueue(std::string label, std::chrono::nanoseconds idleTime)
      : label_(std::move(label)), waiting_(std::make_shared<WaitingBlocks>(label_, idleTime)) {}
  ~ThreadQueue() override { waiting_->close(); }

  void async(Block block) override { waiting_->add(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    dispatch::fireAfter(delay, [self = shared_from_this(), block = std::move(block)]() mutable {
      self->async(std::move(block));
    });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  const std::shared_ptr<WaitingBlocks> waiting_;
};

}  // namespace

std::shared_ptr<DispatchQueue> threadQueue(std::string label, std::chrono::nanoseconds idleTime) {
  return std::make_shared<ThreadQueue>(std::move(label), idleTime);
}

}  // namespace kvl
