// The queue of a QObject's thread.
#include "qt/GuiThread.h"

#include <local/qt/GuiThread.h>

#include <limits>
#include <string>
#include <utility>

namespace kvl::qt {
namespace {

// What `queueOf` gives.
class ObjectQueue final : public DispatchQueue {
 public:
  explicit ObjectQueue(std::shared_ptr<GuiCalls> calls)
      : calls_(std::move(calls)), delays_(serial("korvale.local.qt.delays")) {}

  // A block that nobody takes ends with this call, when nothing is locked any more.
  void async(Block block) override { static_cast<void>(calls_->handOver(std::move(block))); }
  void asyncAfter(std::chrono::nanoseconds delay, Block block) override;
  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::shared_ptr<GuiCalls> calls_;
  const std::shared_ptr<DispatchQueue> delays_;
  const std::string label_ = "korvale.local.qt.object";
};

void ObjectQueue::asyncAfter(std::chrono::nanoseconds delay, Block block) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(block));
  delays_->asyncAfter(delay, [calls = calls_, block = std::move(block)]() mutable {
    static_cast<void>(calls->handOver(std::move(block)));
  });
}

}  // namespace

// A child of the object whose thread the blocks run on: it moves and goes with it.
class ObjectQueueRunner final : public GuiCallRunner {
  Q_OBJECT

 public:
  explicit ObjectQueueRunner(QObject& object)
      : GuiCallRunner(std::numeric_limits<std::size_t>::max(), &object),
        queue_(std::make_shared<ObjectQueue>(calls())) {}

  [[nodiscard]] const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }

 private:
  const std::shared_ptr<DispatchQueue> queue_;
};

std::shared_ptr<DispatchQueue> queueOf(QObject& object) {
  auto* runner = object.findChild<ObjectQueueRunner*>({}, Qt::FindDirectChildrenOnly);
  if (runner == nullptr) runner = new ObjectQueueRunner(object);
  return runner->queue();
}

}  // namespace kvl::qt

#include "ObjectQueue.moc"
