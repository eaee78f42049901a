// Queues of blocks on the process's pools of threads, and the main run loop's queue.
#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/core/ThisThread.h"
#include "platform/dispatch/Lanes.h"
#include "platform/dispatch/MainLoop.h"
#include "platform/dispatch/ThreadPool.h"
#include "platform/dispatch/Timers.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <cstddef>
#include <thread>
#include <utility>
#include <vector>

namespace kvl {
namespace {

using dispatch::fireAfter;
using dispatch::ThreadPool;
using Block = DispatchQueue::Block;

// Hosts' blocks may wait, for each other or for hours: documented at `DispatchQueue`.
constexpr unsigned kMostHostThreads = 512;
constexpr unsigned kFewestEagerThreads = 4;
constexpr unsigned kMostEagerThreads = 8;
// The framework's own wait for the key store at most.
constexpr unsigned kMostLaneThreads = 16;
// A serial queue's room for blocks that stays while there are none.
constexpr std::size_t kKeptPlaces = 16;

ThreadPool& hostPool() {
  static NoDestructor<ThreadPool> pool(ThreadPool::Options{
      .name = "korvale.worker",
      .eager =
          std::clamp(std::thread::hardware_concurrency(), kFewestEagerThreads, kMostEagerThreads),
      .kept = 1,
      .most = kMostHostThreads,
      .isOwnWork = false,
      .later = {},
      .start = {}});
  return *pool;
}

ThreadPool& lanePool() {
  static NoDestructor<ThreadPool> pool(ThreadPool::Options{.name = "korvale.lane",
                                                           .eager = 2,
                                                           .kept = 1,
                                                           .most = kMostLaneThreads,
                                                           .isOwnWork = true,
                                                           .later = {},
                                                           .start = {}});
  return *pool;
}

class ConcurrentQueue final : public DispatchQueue {
 public:
  ConcurrentQueue(std::string label, ThreadPool& pool) : label_(std::move(label)), pool_(pool) {}

  void async(Block block) override { pool_.post(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    fireAfter(delay,
              [&pool = pool_, block = std::move(block)]() mutable { pool.post(std::move(block)); });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  ThreadPool& pool_;
};

// The blocks of a serial queue. While there are any, one block of the pool runs them; it holds
// them, so that the queue may be let go of meanwhile.
class SerialBlocks : public std::enable_shared_from_this<SerialBlocks> {
 public:
  explicit SerialBlocks(ThreadPool& pool) : pool_(pool) {}

  void add(Block block) {
    {
      const MutexLock lock(mutex_);
      waiting_.push_back(std::move(block));
      if (std::exchange(isScheduled_, true)) return;
    }
    schedule(shared_from_this());
  }

 private:
  // A block of one pointer needs no memory of its own.
  void schedule(std::shared_ptr<SerialBlocks> self) {
    scheduled_ = std::move(self);
    pool_.post([this] { run(std::exchange(scheduled_, nullptr)); });
  }

  // Runs what waits now; what comes meanwhile takes its turn among the pool's blocks.
  void run(std::shared_ptr<SerialBlocks> self) {
    {
      const MutexLock lock(mutex_);
      turn_.swap(waiting_);
    }
    // What a block holds goes before the next one runs.
    for (Block& block : turn_) std::exchange(block, nullptr)();
    turn_.clear();
    if (turn_.capacity() > kKeptPlaces) turn_.shrink_to_fit();
    {
      const MutexLock lock(mutex_);
      isScheduled_ = !waiting_.empty();
      if (!isScheduled_) return;
    }
    schedule(std::move(self));
  }

  ThreadPool& pool_;
  Mutex mutex_;
  std::vector<Block> waiting_ KVL_GUARDED_BY(mutex_);
  bool isScheduled_ KVL_GUARDED_BY(mutex_) = false;
  // Those that run in this turn. Only `run` uses them.
  std::vector<Block> turn_;
  // This, from when it is scheduled until it runs.
  std::shared_ptr<SerialBlocks> scheduled_;
};

class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue(std::string label, ThreadPool& pool)
      : label_(std::move(label)), blocks_(std::make_shared<SerialBlocks>(pool)) {}

  void async(Block block) override { blocks_->add(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    fireAfter(delay, [blocks = blocks_, block = std::move(block)]() mutable {
      blocks->add(std::move(block));
    });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_;
  const std::shared_ptr<SerialBlocks> blocks_;
};

class MainQueue final : public DispatchQueue {
 public:
  void async(Block block) override { dispatch::postToMainLoop(std::move(block)); }

  void asyncAfter(std::chrono::nanoseconds delay, Block block) override {
    fireAfter(delay,
              [block = std::move(block)]() mutable { dispatch::postToMainLoop(std::move(block)); });
  }

  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::string label_ = "korvale.local.main";
};

}  // namespace

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::concurrent(std::string label) {
  core::prepareForExit();
  return std::make_shared<ConcurrentQueue>(std::move(label), hostPool());
}

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
  core::prepareForExit();
  return std::make_shared<SerialQueue>(std::move(label), hostPool());
}

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
  static NoDestructor<std::shared_ptr<DispatchQueue>> queue(std::make_shared<MainQueue>());
  return *queue;
}

std::shared_ptr<DispatchQueue> dispatch::laneQueue(std::string label) {
  core::prepareForExit();
  return std::make_shared<ConcurrentQueue>(std::move(label), lanePool());
}

bool isMainThread() noexcept {
  return core::isFirstThread();
}

}  // namespace kvl
