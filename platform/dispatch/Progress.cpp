#include "platform/dispatch/ObserverList.h"

#include <local/platform/Mutex.h>
#include <local/platform/Progress.h>

#include <utility>

namespace kvl {

struct Progress::Implementation {
  Implementation(ProgressState initial, std::shared_ptr<DispatchQueue> queue)
      : state(std::move(initial)),
        observers(queue ? std::move(queue) : DispatchQueue::serial("korvale.local.progress")) {}

  Mutex mutex;
  ProgressState state KVL_GUARDED_BY(mutex);
  dispatch::ObserverList<ProgressState> observers;
};

Progress::Progress(ProgressState state, std::shared_ptr<DispatchQueue> observerQueue)
    : implementation_(
          std::make_unique<Implementation>(std::move(state), std::move(observerQueue))) {}

Progress::~Progress() = default;

ProgressState Progress::state() const {
  MutexLock lock(implementation_->mutex);
  return implementation_->state;
}

void Progress::update(ProgressState state) {
  MutexLock lock(implementation_->mutex);
  implementation_->state = std::move(state);
  implementation_->observers.notify(implementation_->state);
}

Observation Progress::observe(Handler handler) const {
  MutexLock lock(implementation_->mutex);
  return implementation_->observers.add(std::move(handler), implementation_->state);
}

}  // namespace kvl
