// Threads that run blocks: as many as the blocks that wait for something leave idle processors.
#pragma once

#include "platform/dispatch/ThreadActivity.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>

#include <semaphore.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

namespace kvl::dispatch {

// Blocks are taken in the order in which they were posted. A few threads start as soon as blocks
// come; when all are busy and a block still waits after half a millisecond, the pool looks what
// they do. As long as fewer of them run than there are processors, more are started; threads that
// compute get no company, unless nothing moves at all for long. Threads that find nothing to do end
// after a while.
//
// Never destroyed: its threads are detached and may run blocks until the process ends.
class ThreadPool {
 public:
  using Block = DispatchQueue::Block;
  // Calls what it is given after a delay, on a thread that is not one of the pool's.
  using Later = std::function<void(std::chrono::nanoseconds, std::function<void()>)>;

  struct Options {
    const char* name;  // of the threads, 15 characters at most
    unsigned eager;    // threads that are started without a look
    unsigned kept;     // threads that stay while there is nothing to do
    unsigned most;     // threads in all
    bool isOwnWork;    // whether all blocks are the framework's own, which end with the process
    std::chrono::nanoseconds idleTime = std::chrono::seconds(5);
    Later later;                                                    // `fireAfter` when empty
    std::function<bool(const char*, std::function<void()>)> start;  // `core::startThread`
  };

  explicit ThreadPool(Options options);
  ~ThreadPool() = delete;
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  // From any thread. A block stays until there is a thread for it, however few the system gives.
  void post(Block block);

  [[nodiscard]] unsigned threadCount() const;

 private:
  // Wakes one thread without a lock, one system call on each side: a thread that comes back from a
  // condition holds its lock as if others waited for it, and asks the system to wake them.
  class Signal {
   public:
    Signal() noexcept { sem_init(&signals_, 0, 0); }
    ~Signal() { sem_destroy(&signals_); }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void give() noexcept { sem_post(&signals_); }
    // They come back early now and then. False when the deadline has passed.
    [[nodiscard]] bool wait() noexcept;
    [[nodiscard]] bool waitUntil(std::chrono::steady_clock::time_point deadline) noexcept;

   private:
    sem_t signals_;
  };
  struct Worker {
    Signal woken;
    bool isWoken = false;
    bool isBusy = false;
    ThreadActivity activity;
  };

  void serve();
  void run(Block block) const;
  [[nodiscard]] bool waitForBlock(Worker& self) KVL_REQUIRES(mutex_);
  [[nodiscard]] Worker& addWorker() KVL_REQUIRES(mutex_);
  void removeWorker(Worker& worker) KVL_REQUIRES(mutex_);
  // Who is to be given the signal, once the lock has been given back: a thread that wakes needs it.
  [[nodiscard]] Worker& wakeIdle() KVL_REQUIRES(mutex_);
  // Starts up to `count` threads, without the lock. Comes back later when the system has none.
  void startThreads(unsigned count);
  void lookLater(std::chrono::nanoseconds delay) KVL_REQUIRES(mutex_);
  void look();
  [[nodiscard]] unsigned missingThreads() KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isStuck() KVL_REQUIRES(mutex_);
  [[nodiscard]] unsigned runningThreads(unsigned enough) KVL_REQUIRES(mutex_);

  const Options options_;
  const unsigned processors_;

  mutable Mutex mutex_;
  std::deque<Block> blocks_ KVL_GUARDED_BY(mutex_);
  // A worker's place outlives its thread, since its signal may come late.
  std::deque<Worker> places_ KVL_GUARDED_BY(mutex_);
  std::vector<Worker*> vacant_ KVL_GUARDED_BY(mutex_);
  std::vector<Worker*> workers_ KVL_GUARDED_BY(mutex_);
  std::vector<Worker*> idle_ KVL_GUARDED_BY(mutex_);  // the last one was busy most recently
  unsigned threads_ KVL_GUARDED_BY(mutex_) = 0;       // those that are being started included
  bool looks_ KVL_GUARDED_BY(mutex_) = false;
  std::chrono::nanoseconds pace_ KVL_GUARDED_BY(mutex_){0};
  std::uint64_t taken_ KVL_GUARDED_BY(mutex_) = 0;
  // For `isStuck`: what was taken when something last moved, when that was, and how long to wait.
  std::uint64_t movedAt_ KVL_GUARDED_BY(mutex_) = 0;
  std::chrono::steady_clock::time_point moved_ KVL_GUARDED_BY(mutex_);
  std::chrono::nanoseconds patience_ KVL_GUARDED_BY(mutex_){0};
};

}  // namespace kvl::dispatch
