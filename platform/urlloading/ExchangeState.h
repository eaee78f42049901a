// What the handles of one fetch or submission share with whoever carries it out.
#pragma once

#include <local/platform/Exchange.h>
#include <local/platform/Mutex.h>

#include <memory>

namespace kvl::urlloading {

// Thread-safe.
class ExchangeState {
 public:
  // The task of the request, before it is resumed. It is cancelled at once when `cancel` came
  // first.
  void setTask(std::shared_ptr<DataTask> task);
  // The handler is about to run. True when `cancel` came first, and the handler is to hear of that
  // in the place of a result.
  [[nodiscard]] bool begin();

  // Cancels the task, now or once it is there. Nothing once the handler has begun.
  void cancel();
  [[nodiscard]] bool hasBegun() const;
  [[nodiscard]] std::shared_ptr<DataTask> task() const;

 private:
  mutable Mutex mutex_;
  bool begun_ KVL_GUARDED_BY(mutex_) = false;
  bool cancelled_ KVL_GUARDED_BY(mutex_) = false;
  std::shared_ptr<DataTask> task_ KVL_GUARDED_BY(mutex_);
};

// Gives `request` what the options say of it.
void apply(const RequestOptions& options, URLRequest& request);

}  // namespace kvl::urlloading
