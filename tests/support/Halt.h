// A place at which a thread stands still until the test lets it go on.
#pragma once

#include <local/platform/Semaphore.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

namespace kvltest {

// The first to come by stops, whoever comes later passes. Whoever still stands when it is destroyed
// goes on then.
class Halt {
 public:
  Halt() = default;
  Halt(const Halt&) = delete;
  Halt& operator=(const Halt&) = delete;
  ~Halt() { letGo(); }

  // What the thread calls; may outlive the object.
  [[nodiscard]] std::function<void()> place() const {
    return [place = place_] {
      if (place->taken.exchange(true)) return;
      place->reached.signal();
      place->open.wait();
    };
  }
  [[nodiscard]] bool isReached() const { return place_->reached.waitFor(std::chrono::seconds(60)); }
  void letGo() const { place_->open.signal(); }

 private:
  struct Place {
    std::atomic<bool> taken = false;
    kvl::Semaphore reached;
    kvl::Semaphore open;
  };
  const std::shared_ptr<Place> place_ = std::make_shared<Place>();
};

}  // namespace kvltest
