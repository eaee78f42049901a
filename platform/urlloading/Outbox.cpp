#include "platform/urlloading/Outbox.h"

namespace kvl::urlloading {

void Outbox::flush() {
  if (blocks_.empty()) return;
  if (blocks_.size() == 1) {
    auto block = std::move(blocks_.front());
    blocks_.clear();
    return queue_->async(std::move(block));
  }
  queue_->async([blocks = std::exchange(blocks_, {})]() mutable {
    // What a block holds goes before the next one runs.
    for (DispatchQueue::Block& block : blocks) std::exchange(block, nullptr)();
  });
}

}  // namespace kvl::urlloading
