// How pending timers hold their session.
#pragma once

#include <local/platform/Atomic.h>
#include <local/platform/Mutex.h>

#include <memory>
#include <utility>
#include <vector>

class KVLSession;

namespace kvl::session {

// A timer cannot be taken back, and one of a long renewal would keep an ended session for hours. So
// a timer's block holds an anchor, and the anchor holds the session until all are emptied.
// Thread-safe.
class PendingTimers {
 public:
  using Anchor = Atomic<std::shared_ptr<KVLSession>>;

  // For a block that keeps `owner` as long as it waits. Empty once `release` has been called.
  [[nodiscard]] std::shared_ptr<Anchor> hold(std::shared_ptr<KVLSession> owner) {
    const MutexLock lock(mutex_);
    if (isReleased_) return std::make_shared<Anchor>();
    auto anchor = std::make_shared<Anchor>(std::move(owner));
    std::erase_if(anchors_, [](const auto& other) { return other.expired(); });
    anchors_.push_back(anchor);
    return anchor;
  }

  // Whoever calls holds the session, which may otherwise go in the middle of this.
  void release() {
    std::vector<std::weak_ptr<Anchor>> emptied;
    {
      const MutexLock lock(mutex_);
      isReleased_ = true;
      emptied.swap(anchors_);
    }
    for (const auto& weak : emptied)
      if (const auto anchor = weak.lock()) anchor->set(nullptr);
  }

 private:
  Mutex mutex_;
  bool isReleased_ KVL_GUARDED_BY(mutex_) = false;
  std::vector<std::weak_ptr<Anchor>> anchors_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::session
