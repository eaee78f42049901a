#include "encoding/EventBuffer.h"

#include <local/KVLEncodingAwaitEvents.h>
#include <local/platform/Mutex.h>

#include <utility>

using KVLEncoding::awaitable::detail::EventBuffer;

namespace {

// An event on its way from the buffer to a `next`, which may be cancelled before it goes on.
// Thread-safe.
class Delivery {
 public:
  explicit Delivery(std::shared_ptr<EventBuffer> buffer) noexcept : buffer_(std::move(buffer)) {}

  void begin(EventBuffer::Event event) {
    {
      const kvl::MutexLock lock(mutex_);
      if (!isOver_) {
        event_ = std::move(event);
        return;
      }
    }
    buffer_->giveBack(std::move(event));
  }
  // Nobody waits any more.
  void end(bool hasArrived) {
    EventBuffer::Event event;
    {
      const kvl::MutexLock lock(mutex_);
      isOver_ = true;
      event.swap(event_);
    }
    if (event && !hasArrived) buffer_->giveBack(std::move(event));
  }

 private:
  const std::shared_ptr<EventBuffer> buffer_;
  kvl::Mutex mutex_;
  EventBuffer::Event event_ KVL_GUARDED_BY(mutex_);
  bool isOver_ KVL_GUARDED_BY(mutex_) = false;
};

}  // namespace

struct KVLEncoding::awaitable::EventSequence::Observed {
  std::weak_ptr<KVLSession> session;
  std::shared_ptr<EventBuffer> buffer;
  kvl::Observation events;
  kvl::Observation states;

  void close() {
    events.end();
    states.end();
    buffer->close();
  }
};

KVLEncoding::awaitable::EventSequence::EventSequence(std::unique_ptr<Observed> observed) noexcept
    : observed_(std::move(observed)) {}

KVLEncoding::awaitable::EventSequence::EventSequence(EventSequence&& other) noexcept = default;

KVLEncoding::awaitable::EventSequence& KVLEncoding::awaitable::EventSequence::operator=(
    EventSequence&& other) noexcept {
  if (this != &other) {
    close();
    observed_ = std::move(other.observed_);
  }
  return *this;
}

KVLEncoding::awaitable::EventSequence::~EventSequence() {
  close();
}

void KVLEncoding::awaitable::EventSequence::close() {
  if (observed_) observed_->close();
}

KVLEncoding::awaitable::Operation<std::optional<std::shared_ptr<KVLEvent>>>
KVLEncoding::awaitable::EventSequence::next() {
  using Next = Operation<std::optional<std::shared_ptr<KVLEvent>>>;
  if (!observed_) return Next([](const auto& rendezvous) { rendezvous->complete(std::nullopt); });
  return Next(
      [session = observed_->session.lock(), buffer = observed_->buffer](const auto& rendezvous) {
        if (!session) buffer->end();
        const auto delivery = std::make_shared<Delivery>(buffer);
        const auto waiter = std::make_shared<EventBuffer::Waiter>(
            [rendezvous, delivery](std::optional<std::shared_ptr<KVLEvent>> event) {
              if (event) delivery->begin(*event);
              rendezvous->complete(std::move(event));
            });
        const std::shared_ptr<void> whenLetGo(
            nullptr, [delivery, watch = std::weak_ptr(rendezvous)](std::nullptr_t) {
              const auto awaited = watch.lock();
              delivery->end(awaited && awaited->isTaken());
            });
        // The buffer forgets who lets go of this.
        rendezvous->holds([session, waiter, whenLetGo] {});
        buffer->next(waiter);
      });
}

KVLEncoding::awaitable::EventSequence KVLEncoding::awaitable::events(KVLSession& session,
                                                                     const EventLimits& limits) {
  const std::weak_ptr<KVLSession> weak = session.weak_from_this();
  auto buffer = std::make_shared<EventBuffer>(limits, [weak](bool holds) {
    if (const auto held = weak.lock()) held->holdEvents(holds);
  });
  auto observed = std::make_unique<EventSequence::Observed>();
  observed->session = weak;
  observed->buffer = buffer;
  observed->events = session.observeEvents([buffer](const auto& events) { buffer->add(events); });
  observed->states = session.observeState([buffer](KVLSessionState state) {
    if (state == KVLSessionStateEnded) buffer->end();
  });
  return EventSequence(std::move(observed));
}
