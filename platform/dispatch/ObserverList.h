// Observers of one value, told of each new state in order on a serial queue.
#pragma once

#include "platform/core/Observer.h"
#include "platform/core/ProcessExit.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>
#include <local/platform/Observation.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace kvl::dispatch {

// Thread-safe. `notify` only hands over to the queue, so it may be called with locks held.
template <class State>
class ObserverList {
 public:
  using Handler = std::function<void(const State&)>;

  // Lists that share a serial queue tell their observers in the order of all their changes.
  explicit ObserverList(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  // Registers `handler` and tells it `present` first. A caller that reads the present state and
  // registers under the lock with which it publishes new ones misses none and sees none twice.
  [[nodiscard]] Observation add(Handler handler, State present) {
    auto observer = std::make_shared<Observer>(std::move(handler));
    MutexLock lock(mutex_);
    std::erase_if(observers_, [](const auto& other) { return other.expired(); });
    observers_.push_back(observer);
    queue_->async([observer, present = std::move(present)] {
      const core::ThreadWork work;
      observer->tell(present);
    });
    return Observation(std::move(observer));
  }

  void notify(const State& state) {
    MutexLock lock(mutex_);
    for (const auto& weak : observers_) {
      if (weak.expired()) continue;
      queue_->async([weak, state] {
        const core::ThreadWork work;
        if (const auto observer = weak.lock()) observer->tell(state);
      });
    }
  }

 private:
  using Observer = core::Observer<const State&>;

  const std::shared_ptr<DispatchQueue> queue_;
  Mutex mutex_;
  std::vector<std::weak_ptr<Observer>> observers_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::dispatch
