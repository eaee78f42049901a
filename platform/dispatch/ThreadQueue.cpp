#include "platform/dispatch/ThreadQueue.h"

#include "platform/core/BlockedSignals.h"
#include "platform/core/NoDestructor.h"

#include <local/platform/Mutex.h>

#include <pthread.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace kvl {
namespace {

constexpr std::size_t kLongestThreadName = 15;  // the kernel's limit

// What the queue and its thread share. The thread holds it, so that a queue can be let go of while
// blocks wait, also inside one of them.
class WaitingBlocks : public std::enable_shared_from_this<WaitingBlocks> {
 public:
  using Block = DispatchQueue::Block;

  // Throws, with nothing changed, when the first block's thread cannot be started.
  void add(const std::string& label, Block block) {
    const MutexLock lock(mutex_);
    if (!started_) startThread(label.substr(0, kLongestThreadName));
    started_ = true;
    blocks_.push_back(std::move(block));
    changed_.notifyOne();
  }

  // None are added any more.
  void close() {
    const MutexLock lock(mutex_);
    closed_ = true;
    changed_.notifyOne();
  }

 private:
  void startThread(const std::string& name) {
    const core::BlockedSignals inherited;
    std::thread([self = shared_from_this(), name] {
      pthread_setname_np(pthread_self(), name.c_str());
      // What a block holds goes with it, before the next one runs.
      while (const auto block = self->takeNext()) (*block)();
    }).detach();
  }

  // Waits for a block; nothing when there will be none.
  std::optional<Block> takeNext() {
    MutexLock lock(mutex_);
    while (blocks_.empty() && !closed_) changed_.wait(lock);
    if (blocks_.empty()) return std::nullopt;
    std::optional<Block> next(std::move(blocks_.front()));
    blocks_.pop_front();
    return next;
  }

  Mutex mutex_;
  Condition changed_;
  std::deque<Block> blocks_ KVL_GUARDED_BY(mutex_);
  bool started_ KVL_GUARDED_BY(mutex_) = false;
  bool closed_ KVL_GUARDED_BY(mutex_) = false;
};

// Where the delayed blocks of all these queues fall due. It is serial, so that none overtakes one
// that was due before it; the blocks themselves do not run there.
DispatchQueue& dueQueue() {
  static const NoDestructor<std::shared_ptr<DispatchQueue>> queue(
      DispatchQueue::serial("korvale.local.due"));
  return **queue;
}

class ThreadQueue final : public DispatchQueue, public std::enable_shared_from_this<ThreadQueue> {
 public:
  explicit ThreadQueue(std::string label) : label_(std::move(label)) {}
  ~ThreadQueue() override { waiting_->close(); }

  void async(Block block) override { waiting_->add(label_, std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    dueQueue().asyncAfter(delay, [self = shared_from_this(), block = std::move(block)]() mutable {
      self->async(std::move(block));
    });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  const std::shared_ptr<WaitingBlocks> waiting_ = std::make_shared<WaitingBlocks>();
};

}  // namespace

std::shared_ptr<DispatchQueue> threadQueue(std::string label) {
  return std::make_shared<ThreadQueue>(std::move(label));
}

}  // namespace kvl
