// Observers of one value, told of each new state in order on a serial queue.
#pragma once

#include <local/platform/DispatchQueue.h>
#include <local/platform/Observation.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
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
    std::lock_guard lock(mutex_);
    std::erase_if(observers_, [](const auto& other) { return other.expired(); });
    observers_.push_back(observer);
    queue_->async([observer, present = std::move(present)] { observer->tell(present); });
    return Observation(std::move(observer));
  }

  void notify(const State& state) {
    std::lock_guard lock(mutex_);
    for (const auto& weak : observers_) {
      if (weak.expired()) continue;
      queue_->async([weak, state] {
        if (const auto observer = weak.lock()) observer->tell(state);
      });
    }
  }

 private:
  class Observer final : public Observation::Registration {
   public:
    explicit Observer(Handler handler) : handler_(std::move(handler)) {}

    void tell(const State& state) {
      {
        std::lock_guard lock(mutex_);
        if (ended_) return;
        runner_ = std::this_thread::get_id();
      }
      handler_(state);
      // An observer that ended inside its own handler lets go of it here.
      Handler finished;
      std::lock_guard lock(mutex_);
      if (ended_) finished.swap(handler_);
      runner_ = {};
      finished_.notify_all();
    }

    void end() override {
      Handler finished;  // destroyed after the lock is given back
      std::unique_lock lock(mutex_);
      ended_ = true;
      if (runner_ == std::this_thread::get_id()) return;
      finished_.wait(lock, [this] { return runner_ == std::thread::id(); });
      finished.swap(handler_);
    }

   private:
    Handler handler_;
    std::mutex mutex_;
    std::condition_variable finished_;
    std::thread::id runner_;
    bool ended_ = false;
  };

  const std::shared_ptr<DispatchQueue> queue_;
  std::mutex mutex_;
  std::vector<std::weak_ptr<Observer>> observers_;
};

}  // namespace kvl::dispatch
