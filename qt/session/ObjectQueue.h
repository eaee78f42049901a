// The queue of a QObject's thread.
#pragma once

#include "qt/GuiThread.h"

#include <local/platform/DispatchQueue.h>

#include <QObject>
#include <memory>
#include <string>

namespace kvl::qt {

// A child of the object whose thread the blocks run on: it moves and goes with it.
class ObjectQueueRunner final : public GuiCallRunner {
  Q_OBJECT

 public:
  explicit ObjectQueueRunner(QObject& object);

  [[nodiscard]] const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }

 private:
  const std::shared_ptr<DispatchQueue> queue_;
};

// What `queueOf` gives.
class ObjectQueue final : public DispatchQueue {
 public:
  explicit ObjectQueue(std::shared_ptr<GuiCalls> calls);

  void async(Block block) override;
  void asyncAfter(std::chrono::nanoseconds delay, Block block) override;
  [[nodiscard]] const std::string& label() const noexcept override { return label_; }

 private:
  const std::shared_ptr<GuiCalls> calls_;
  const std::shared_ptr<DispatchQueue> delays_;
  const std::string label_ = "korvale.local.qt.object";
};

}  // namespace kvl::qt
