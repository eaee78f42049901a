// What the I/O thread hands to the session object's queue.
#pragma once

#include <local/platform/DispatchQueue.h>

#include <memory>
#include <utility>
#include <vector>

namespace kvl::urlloading {

// Collects the blocks of one pass, so that the queue's thread is woken once for all of them. They
// run one after the other, in the order in which they were added. On the I/O thread only.
class Outbox {
 public:
  explicit Outbox(std::shared_ptr<DispatchQueue> queue) noexcept : queue_(std::move(queue)) {}

  void add(DispatchQueue::Block block) { blocks_.push_back(std::move(block)); }
  // Hands over what has been added. Before the I/O thread waits, or what comes after these blocks
  // is handed over in another way.
  void flush();

 private:
  const std::shared_ptr<DispatchQueue> queue_;
  std::vector<DispatchQueue::Block> blocks_;
};

}  // namespace kvl::urlloading
