// One observer of something that changes.
#pragma once

#include <local/platform/Mutex.h>
#include <local/platform/Observation.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace kvl::core {

// Holds a handler until the observation ends, and gives `Observation` its guarantee of silence.
// Thread-safe: several threads may tell at once, and a handler may do what tells it again.
template <class... Arguments>
class Observer final : public Observation::Registration {
 public:
  using Handler = std::function<void(Arguments...)>;

  explicit Observer(Handler handler) : handler_(std::move(handler)) {}

  void tell(Arguments... arguments) {
    {
      MutexLock lock(mutex_);
      if (ended_) return;
      runners_.push_back(std::this_thread::get_id());
    }
    handler_(arguments...);
    // An observer that ended inside its own handler lets go of it here; elsewhere, who ends it
    // does.
    Handler finished;
    MutexLock lock(mutex_);
    runners_.erase(std::ranges::find(runners_, std::this_thread::get_id()));
    if (ended_ && enders_ == 0 && runners_.empty()) finished.swap(handler_);
    finished_.notifyAll();
  }

  void end() override {
    Handler finished;  // destroyed after the lock is given back
    MutexLock lock(mutex_);
    ended_ = true;
    if (std::ranges::find(runners_, std::this_thread::get_id()) != runners_.end()) return;
    ++enders_;
    while (!runners_.empty()) finished_.wait(lock);
    --enders_;
    finished.swap(handler_);
  }

 private:
  Handler handler_;  // stays as it is while there are runners
  Mutex mutex_;
  Condition finished_;
  // One for each call of the handler.
  std::vector<std::thread::id> runners_ KVL_GUARDED_BY(mutex_);
  bool ended_ KVL_GUARDED_BY(mutex_) = false;
  std::size_t enders_ KVL_GUARDED_BY(mutex_) = 0;  // those that wait
};

}  // namespace kvl::core
