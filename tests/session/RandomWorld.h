// A world of one thread in which whatever a session leaves for later happens in an order that
// random numbers choose, so that the same seed repeats the same course of events.
#pragma once

#include "platform/environment/Environment.h"

#include <local/KVLNotary.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/URLSession.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {

// Blocks of all queues, to be run one by one, and the time.
class Scheduler {
 public:
  using Block = kvl::DispatchQueue::Block;
  using Nanoseconds = std::chrono::nanoseconds;

  explicit Scheduler(std::uint64_t seed) : random_(seed) {}

  [[nodiscard]] std::size_t below(std::size_t count) { return random_() % count; }
  [[nodiscard]] bool happens(std::size_t oneIn) { return below(oneIn) == 0; }

  // A queue whose blocks run in order, or in any.
  [[nodiscard]] std::shared_ptr<kvl::DispatchQueue> queue(bool isSerial);
  void add(std::size_t queue, bool isSerial, Nanoseconds delay, Block block);

  // Runs one of the blocks that may run now.
  bool runOne();
  void runAll() {
    while (runOne()) {
    }
  }
  // Moves on to the next timer.
  bool passTime();
  // What goes with a block may leave others behind.
  void forgetAll() {
    while (!pending_.empty()) std::exchange(pending_, {});
  }

  // Of the queues that are not serial, where the timers are.
  [[nodiscard]] std::size_t pending() const;
  [[nodiscard]] kvl::Date wallTime() const {
    return kvl::Date(8.0e8).adding(std::chrono::duration<double>(now_).count());
  }

 private:
  struct Pending {
    std::size_t queue;
    bool isSerial;
    Nanoseconds due;
    Block block;
  };
  [[nodiscard]] bool isRunnable(std::size_t index) const;

  std::mt19937_64 random_;
  Nanoseconds now_{0};
  std::size_t queues_ = 0;
  std::deque<Pending> pending_;
};

// Runs requests as a service would: what a request brings is its own address, and an event stream
// goes on after the event that its request names.
class RandomService {
 public:
  explicit RandomService(Scheduler& scheduler) : scheduler_(scheduler) {}

  class Task;
  [[nodiscard]] std::shared_ptr<kvl::URLSession> urlSession(
      kvl::URLSessionConfiguration configuration, std::weak_ptr<kvl::URLSessionDelegate> delegate);

  // Something happens to one of the running tasks.
  void serve();
  // All tasks end.
  void endAll();
  [[nodiscard]] std::size_t running() const { return tasks_.size(); }

 private:
  class Loader;
  void begin(const std::shared_ptr<Task>& task);
  void end(const std::shared_ptr<Task>& task, const std::optional<kvl::Error>& error);
  void sendEvents(const std::shared_ptr<Task>& task);

  Scheduler& scheduler_;
  std::vector<std::shared_ptr<Task>> tasks_;
};

}  // namespace kvltest
