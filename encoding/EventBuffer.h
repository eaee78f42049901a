// The events that wait for a coroutine, and the stream that is held while they are many.
#pragma once

#include <local/KVLEncodingAwaitEvents.h>
#include <local/KVLSession.h>
#include <local/platform/Mutex.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace KVLEncoding::awaitable::detail {

// Thread-safe. Nothing is called with its lock held.
class EventBuffer {
 public:
  using Event = std::shared_ptr<KVLEvent>;
  // Receives the next event, or none at the end. Whoever waits holds it, and forgets it by letting
  // go.
  using Waiter = std::function<void(std::optional<Event>)>;
  // Called with whether the stream is to be held, never twice with the same.
  using Hold = std::function<void(bool)>;

  EventBuffer(const EventLimits& limits, Hold hold);

  void add(const std::vector<Event>& events);
  // No more will come; what waits stays.
  void end();
  // The same, and what waits is dropped.
  void close();
  // Takes an event back that its waiter has no use for: it is the next one again.
  void giveBack(Event event);
  // Calls `waiter` once, now or later. One that waits already gets none.
  void next(const std::shared_ptr<Waiter>& waiter);

 private:
  [[nodiscard]] std::shared_ptr<Waiter> takeWaiter() KVL_REQUIRES(mutex_);
  [[nodiscard]] Event takeFirst() KVL_REQUIRES(mutex_);
  void push(const Event& event) KVL_REQUIRES(mutex_);
  void wantHoldIfFull() KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isFull() const KVL_REQUIRES(mutex_);
  [[nodiscard]] bool isAlmostEmpty() const KVL_REQUIRES(mutex_);
  void settleHold();

  const EventLimits limits_;
  const Hold hold_;
  kvl::Mutex mutex_;
  std::deque<Event> events_ KVL_GUARDED_BY(mutex_);
  std::deque<std::size_t> sizes_ KVL_GUARDED_BY(mutex_);  // of their texts, which may change
  std::size_t bytes_ KVL_GUARDED_BY(mutex_) = 0;
  std::weak_ptr<Waiter> waiter_ KVL_GUARDED_BY(mutex_);
  bool isOver_ KVL_GUARDED_BY(mutex_) = false;
  bool isClosed_ KVL_GUARDED_BY(mutex_) = false;
  bool wantsHold_ KVL_GUARDED_BY(mutex_) = false;
  bool isHeld_ KVL_GUARDED_BY(mutex_) = false;
  bool isSettling_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace KVLEncoding::awaitable::detail
