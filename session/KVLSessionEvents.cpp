// A session's event stream: where it comes from, what it brings and how it ends.
#include "session/Monitors.h"
#include "session/SessionImplementation.h"
#include "session/SessionTrace.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <optional>
#include <utility>
#include <vector>

namespace {

using kvl::session::DeliveryOrder;
using kvl::session::StreamSection;
using kvl::session::traceEvents;
using kvl::session::traceStreamEnd;

// An idle time-out or a cancellation from outside: the stream is simply opened again.
bool restartsStream(const std::optional<kvl::Error>& error) {
  return error && (error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut) ||
                   error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
}

void logEnd(const std::optional<kvl::Error>& error) {
  if (!error) return;
  kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
           error->domain() == kvl::NSURLErrorDomain
               ? "event stream closed with unexpected network error: %@"
               : "event stream closed with unexpected error: %@",
           *error);
}

kvl::Error endedByTheService() {
  return {kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost};
}

}  // namespace

void KVLSession::setEventStreamSource(const std::string& source) {
  auto& self = *implementation_;
  if (!self.home.isThisProcess()) return;
  const auto stream = self.eventStream.get();
  const StreamSection section(stream);
  if (self.gate.isClosed()) return;
  if (self.eventSource.exchange(source) == source) return;
  stream->streamFromURL(source, *this);
}

void KVLSession::didReceiveData(kvl::URLSession& /*session*/,
                                const std::shared_ptr<kvl::DataTask>& task, const kvl::Data& data) {
  auto& self = *implementation_;
  const auto stream = eventStream();
  if (data.empty() || (!delegate() && self.eventObservers.isEmpty())) return;
  std::vector<std::shared_ptr<KVLEvent>> events;
  std::optional<DeliveryOrder::Turn> turn;
  {
    // A stream that is opened meanwhile must not find the rest of this one's last line.
    const StreamSection section(stream);
    if (!stream->isEqualToTask(*task)) return;
    events = stream->read(data);
    if (events.empty()) return;
    turn.emplace(self.deliveries);
  }
  turn->wait();
  if (self.gate.isClosed()) return;
  traceEvents(*task, events.size(), data.size());
  if (const auto receiver = delegate()) receiver->eventStream(*this, events);
  if (!self.gate.isClosed()) self.eventObservers.tell(events);
}

void KVLSession::didCompleteWithError(kvl::URLSession& session,
                                      const std::shared_ptr<kvl::DataTask>& task,
                                      const std::optional<kvl::Error>& error) {
  auto& self = *implementation_;
  traceStreamEnd(*task, error);
  const auto stream = eventStream();
  const StreamSection section(stream);
  if (!stream->isEqualToTask(*task) || self.gate.isClosed()) return;
  if (restartsStream(error)) return self.reopenLater(shared_from_this(), stream, task);
  logEnd(error);
  // A stream that a renewal has left alone: only the identity before is refused.
  if (isNotarisationError(error) && self.isReplaced(&session)) {
    return self.reopenLater(shared_from_this(), stream, task);
  }
  self.reconnect(shared_from_this(), error ? *error : endedByTheService());
}

void KVLSession::Implementation::reopenLater(const std::shared_ptr<KVLSession>& owner,
                                             const std::shared_ptr<KVLEventStreamState>& stream,
                                             const std::shared_ptr<kvl::DataTask>& task) {
  timerQueue()->async(
      [owner, stream, task] { owner->implementation_->reopen(owner, stream, *task); });
}

void KVLSession::Implementation::reopen(const std::shared_ptr<KVLSession>& owner,
                                        const std::shared_ptr<KVLEventStreamState>& stream,
                                        const kvl::DataTask& task) {
  const StreamSection section(stream);
  // Somebody may have opened another stream in the meantime.
  if (!stream->isEqualToTask(task) || gate.isClosed()) return;
  const auto current = session.get();
  if (current && current->isInvalidated()) {
    // Every stream would end there as this one has, at once and for ever.
    kvl::log(kvl::LogCategory::events, kvl::LogLevel::warning,
             "HTTPS session object is invalidated; enqueuing reconnection");
    return reconnect(owner, kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  }
  stream->streamFromURL(task.originalRequest().urlText(), *owner);
}

kvl::Observation KVLSession::observeEvents(
    std::function<void(const std::vector<std::shared_ptr<KVLEvent>>&)> handler) const {
  return implementation_->eventObservers.add(std::move(handler));
}

// A stream that is opened meanwhile begins held.
void KVLSession::holdEvents(bool hold) {
  implementation_->eventHold.change(hold);
}
