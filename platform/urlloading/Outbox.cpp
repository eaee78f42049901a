#include "platform/urlloading/Outbox.h"

namespace kvl::urlloading {

void Outbox::flush() {
  if (blocks_.empty()) return;
  auto blocks = std::exchange(blocks_, {});
  if (blocks.size() == 1) return queue_->async(std::move(blocks.front()));
  queue_->async([blocks = std::move(blocks)]() mutable {
    // What a block holds goes before the next one runs.
    for (DispatchQueue::Block& block : blocks) std::exchange(block, nullptr)();
  });
}

}  // namespace kvl::urlloading
