// What the handles of one fetch or submission share with whoever carries it out.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Exchange.h>
#include <local/platform/Mutex.h>

#include <atomic>
#include <memory>
#include <utility>

namespace kvl::urlloading {

// Which of them came first, the handler or `cancel`. Thread-safe. The handler holds this alone:
// with the task, which holds the handler, it would hold itself.
class HandlerTurn {
 public:
  // The handler is about to run. False when `cancel` came first, and the handler is to hear of that
  // in the place of a result.
  [[nodiscard]] bool begin() noexcept { return stage_.exchange(Stage::begun) != Stage::cancelled; }
  // False once the handler has begun.
  bool cancel() noexcept {
    auto before = Stage::waiting;
    return stage_.compare_exchange_strong(before, Stage::cancelled) || before == Stage::cancelled;
  }
  [[nodiscard]] bool hasBegun() const noexcept { return stage_ == Stage::begun; }
  [[nodiscard]] bool isCancelled() const noexcept { return stage_ == Stage::cancelled; }

 private:
  enum class Stage : unsigned char { waiting, cancelled, begun };
  std::atomic<Stage> stage_ = Stage::waiting;
};
using HandlerTurnRef = std::shared_ptr<HandlerTurn>;

// Thread-safe.
class ExchangeState {
 public:
  explicit ExchangeState(HandlerTurnRef turn) : turn_(std::move(turn)) {}

  // The task of the request. It is cancelled at once when `cancel` came first.
  void setTask(std::shared_ptr<DataTask> task);

  // Cancels the task, now or once it is there. Nothing once the handler has begun.
  void cancel();
  [[nodiscard]] bool hasBegun() const noexcept { return turn_->hasBegun(); }
  [[nodiscard]] std::shared_ptr<DataTask> task() const;

 private:
  const HandlerTurnRef turn_;
  mutable Mutex mutex_;
  std::shared_ptr<DataTask> task_ KVL_GUARDED_BY(mutex_);
};

// The error of an exchange whose answer, if any, came before `cancel`.
[[nodiscard]] Error cancelledError(const URLResponseRef& response);

// Gives `request` what the options say of it.
void apply(const RequestOptions& options, URLRequest& request);

}  // namespace kvl::urlloading
