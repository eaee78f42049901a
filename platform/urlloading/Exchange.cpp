#include "platform/urlloading/ExchangeState.h"
#include "platform/urlloading/LoadingErrors.h"

#include <utility>

namespace kvl {

void Exchange::cancel() const {
  if (state_) state_->cancel();
}

bool Exchange::isOver() const {
  return !state_ || state_->hasBegun();
}

std::shared_ptr<DataTask> Exchange::task() const {
  return state_ ? state_->task() : nullptr;
}

TransferProgress Exchange::progress() const {
  const auto held = task();
  return held ? held->progress() : TransferProgress();
}

Observation Exchange::observeProgress(std::function<void(const TransferProgress&)> handler) const {
  const auto held = task();
  return held ? held->observeProgress(std::move(handler)) : Observation();
}

namespace urlloading {

void ExchangeState::setTask(std::shared_ptr<DataTask> task) {
  {
    const MutexLock lock(mutex_);
    task_ = task;
  }
  if (turn_->isCancelled()) task->cancel();
}

// The task may be of the host's own class and call back, so the lock is not held for it.
void ExchangeState::cancel() {
  if (!turn_->cancel()) return;
  if (const auto held = task()) held->cancel();
}

std::shared_ptr<DataTask> ExchangeState::task() const {
  const MutexLock lock(mutex_);
  return task_;
}

Error cancelledError(const URLResponseRef& response) {
  return makeURLError(NSURLErrorCancelled, response ? response->url.absoluteString() : "");
}

void apply(const RequestOptions& options, URLRequest& request) {
  for (const auto& [name, value] : options.headers) request.headers().set(name, value);
  if (options.idleTimeout) request.setTimeoutInterval(*options.idleTimeout);
  if (options.totalTimeout) request.setTotalTimeout(*options.totalTimeout);
  request.setPriority(options.priority);
}

}  // namespace urlloading
}  // namespace kvl
