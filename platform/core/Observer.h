// One observer of something that changes.
#pragma once

#include <local/platform/Observation.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
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
      std::lock_guard lock(mutex_);
      if (ended_) return;
      runners_.push_back(std::this_thread::get_id());
    }
    handler_(arguments...);
    // An observer that ended inside its own handler lets go of it here.
    Handler finished;
    std::lock_guard lock(mutex_);
    runners_.erase(std::ranges::find(runners_, std::this_thread::get_id()));
    if (ended_ && runners_.empty()) finished.swap(handler_);
    finished_.notify_all();
  }

  void end() override {
    Handler finished;  // destroyed after the lock is given back
    std::unique_lock lock(mutex_);
    ended_ = true;
    if (std::ranges::find(runners_, std::this_thread::get_id()) != runners_.end()) return;
    finished_.wait(lock, [this] { return runners_.empty(); });
    finished.swap(handler_);
  }

 private:
  Handler handler_;
  std::mutex mutex_;
  std::condition_variable finished_;
  std::vector<std::thread::id> runners_;  // one for each call of the handler
  bool ended_ = false;
};

}  // namespace kvl::core
