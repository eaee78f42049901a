#include "encoding/EventBuffer.h"

#include <local/KVLEncodingAwaitEvents.h>

#include <utility>

using KVLEncoding::awaitable::detail::EventBuffer;

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
  return Next(
      [session = observed_->session.lock(), buffer = observed_->buffer](const auto& rendezvous) {
        if (!session) buffer->end();
        const auto waiter = std::make_shared<EventBuffer::Waiter>(
            [rendezvous](std::optional<std::shared_ptr<KVLEvent>> event) {
              rendezvous->complete(std::move(event));
            });
        // The buffer forgets who lets go of this.
        rendezvous->holds([session, waiter] {});
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
