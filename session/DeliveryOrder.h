// The order in which several queues hand over what they have.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kvl::session {

// Hands out turns, and lets those who have one go on in that order, one at a time. Thread-safe.
class DeliveryOrder {
 public:
  // A place in the order. Others wait for it until it is destroyed.
  class Turn {
   public:
    explicit Turn(DeliveryOrder& order) : order_(&order), number_(order.draw()) {}
    ~Turn() { order_->finish(number_); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Returns once every turn before has ended.
    void wait() { order_->waitFor(number_); }

   private:
    DeliveryOrder* const order_;
    const std::uint64_t number_;
  };

 private:
  std::uint64_t draw() {
    std::lock_guard lock(mutex_);
    return drawn_++;
  }
  void waitFor(std::uint64_t number) {
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [&] { return ended_ == number; });
  }
  void finish(std::uint64_t number) {
    waitFor(number);
    std::lock_guard lock(mutex_);
    ++ended_;
    finished_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable finished_;
  std::uint64_t drawn_ = 0;
  std::uint64_t ended_ = 0;
};

}  // namespace kvl::session
