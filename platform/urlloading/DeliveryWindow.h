// How much of a body may wait for the delegate.
#pragma once

#include <cstddef>
#include <mutex>

namespace kvl::urlloading {

// Counts the bytes between the I/O thread, which adds, and the delegate's queue, which takes away.
class DeliveryWindow {
 public:
  explicit DeliveryWindow(std::size_t limit) noexcept : limit_(limit) {}

  // Whether there is room. Without, the sender is held back until `release` says so.
  [[nodiscard]] bool isOpen();
  // Adds `count` bytes, however many wait already.
  void add(std::size_t count);
  // Takes `count` bytes away. True when a held sender may go on: once, at half of the limit.
  [[nodiscard]] bool release(std::size_t count);

 private:
  const std::size_t limit_;
  std::mutex mutex_;
  std::size_t waiting_ = 0;
  bool held_ = false;
};

}  // namespace kvl::urlloading
