#include "qt/session/ObjectQueue.h"

#include <local/qt/GuiThread.h>

#include <limits>
#include <utility>

namespace kvl::qt {

ObjectQueueRunner::ObjectQueueRunner(QObject& object)
    : GuiCallRunner(std::numeric_limits<std::size_t>::max(), &object),
      queue_(std::make_shared<ObjectQueue>(calls())) {}

ObjectQueue::ObjectQueue(std::shared_ptr<GuiCalls> calls)
    : calls_(std::move(calls)), delays_(DispatchQueue::serial("korvale.local.qt.delays")) {}

// A block that nobody takes ends with this call, when nothing is locked any more.
void ObjectQueue::async(Block block) {
  static_cast<void>(calls_->handOver(std::move(block)));
}

void ObjectQueue::asyncAfter(std::chrono::nanoseconds delay, Block block) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(block));
  delays_->asyncAfter(delay, [calls = calls_, block = std::move(block)]() mutable {
    static_cast<void>(calls->handOver(std::move(block)));
  });
}

std::shared_ptr<DispatchQueue> queueOf(QObject& object) {
  auto* runner = object.findChild<ObjectQueueRunner*>({}, Qt::FindDirectChildrenOnly);
  if (runner == nullptr) runner = new ObjectQueueRunner(object);
  return runner->queue();
}

}  // namespace kvl::qt
