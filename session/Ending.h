// What a session's end is made of.
#pragma once

#include "platform/core/ProcessExit.h"

#include <local/KVLSession.h>
#include <local/platform/Atomic.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Error.h>
#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace kvl::session {

// Lets calls of the notary through until it is closed. What comes after the last of them is done by
// whoever is the last to leave: nobody asks a notary whose keys have been taken away. Thread-safe.
class Gate {
 public:
  // False once it is closed. Whoever has entered leaves.
  [[nodiscard]] bool enter() {
    const MutexLock lock(mutex_);
    if (isClosed_) return false;
    ++inside_;
    return true;
  }
  // Whether nobody is inside any more, and nobody will be.
  [[nodiscard]] bool leave() {
    const MutexLock lock(mutex_);
    return --inside_ == 0;
  }
  // The first call, which is the one that returns true, leaves as the others do.
  [[nodiscard]] bool close() {
    const MutexLock lock(mutex_);
    return !std::exchange(isClosed_, true);
  }
  [[nodiscard]] bool isClosed() const {
    const MutexLock lock(mutex_);
    return isClosed_;
  }

 private:
  mutable Mutex mutex_;
  bool isClosed_ KVL_GUARDED_BY(mutex_) = false;
  std::size_t inside_ KVL_GUARDED_BY(mutex_) = 1;  // who will close it
};

// Those who want to know when the end is complete. Thread-safe; outlives the session.
class EndHandlers {
 public:
  explicit EndHandlers(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  void add(KVLSession::EndHandler handler) {
    if (!handler) return;
    const MutexLock lock(mutex_);
    if (isComplete_) return post(std::move(handler));
    waiting_.push_back(std::move(handler));
  }

  void complete(std::optional<Error> keyError) {
    const MutexLock lock(mutex_);
    isComplete_ = true;
    keyError_ = std::move(keyError);
    for (auto& handler : std::exchange(waiting_, {})) post(std::move(handler));
  }

 private:
  void post(KVLSession::EndHandler handler) KVL_REQUIRES(mutex_) {
    queue_->async([handler = std::move(handler), error = keyError_] {
      const core::ThreadWork work;
      handler(error);
    });
  }

  const std::shared_ptr<DispatchQueue> queue_;
  Mutex mutex_;
  bool isComplete_ KVL_GUARDED_BY(mutex_) = false;
  std::optional<Error> keyError_ KVL_GUARDED_BY(mutex_);
  std::vector<KVLSession::EndHandler> waiting_ KVL_GUARDED_BY(mutex_);
};

// HTTPS session objects of which others have taken the place, and whose last requests still run.
// Thread-safe.
class DrainingSessions {
 public:
  void add(const std::shared_ptr<URLSession>& replaced) {
    if (!replaced) return;
    const MutexLock lock(mutex_);
    std::erase_if(sessions_, [](const auto& other) { return other.expired(); });
    sessions_.push_back(replaced);
  }

  // With locks held nothing of a host's own class may be called; so these are only handed out.
  [[nodiscard]] std::vector<std::shared_ptr<URLSession>> take() {
    std::vector<std::shared_ptr<URLSession>> running;
    const MutexLock lock(mutex_);
    for (const auto& weak : std::exchange(sessions_, {}))
      if (auto session = weak.lock()) running.push_back(std::move(session));
    return running;
  }

 private:
  Mutex mutex_;
  std::vector<std::weak_ptr<URLSession>> sessions_ KVL_GUARDED_BY(mutex_);
};

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
