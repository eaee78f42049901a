// Calls that any thread hands over to the GUI thread.
#pragma once

#include "qt/Relay.h"

#include <QObject>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace kvl::qt {

// What is called in the end: lives on the GUI thread and takes what `Errands` hands over.
class ErrandRunner;

// Any thread may hold and use it, also when the runner is gone.
class Errands {
 public:
  using Errand = std::function<void()>;

  // Calls `errand` on the GUI thread when the event loop runs again. False when nobody calls it:
  // the runner is gone, or too many errands are waiting already.
  [[nodiscard]] bool handOver(Errand errand);

 private:
  friend class ErrandRunner;

  std::mutex mutex_;
  Relay* relay_ = nullptr;
  std::vector<Errand> waiting_;
};

class ErrandRunner final : public QObject {
 public:
  ErrandRunner();
  // What waits is dropped.
  ~ErrandRunner() override;

  [[nodiscard]] const std::shared_ptr<Errands>& errands() const { return errands_; }

 protected:
  bool event(QEvent* event) override;

 private:
  std::vector<Errands::Errand> takeWaiting();

  const std::shared_ptr<Errands> errands_ = std::make_shared<Errands>();
  Relay relay_{*this};
};

}  // namespace kvl::qt
