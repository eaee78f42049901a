// The session's side of the event stream.
#include "eventstream/KVLEventStreamStateImplementation.h"
#include "session/SessionImplementation.h"

#include <local/KVLSession.h>
#include <local/platform/Log.h>

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace {

// An idle time-out or a cancellation from outside: the stream is simply opened again.
bool restartsStream(const std::optional<kvl::Error>& error) {
  return error && (error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut) ||
                   error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
}

void logEnd(const std::optional<kvl::Error>& error) {
  if (!error) return;
  kvl::log(error->domain() == kvl::NSURLErrorDomain
               ? "event stream closed with unexpected network error: %@"
               : "event stream closed with unexpected error: %@",
           *error);
}

}  // namespace

void KVLSession::setEventStreamSource(const std::string& source) {
  auto& self = *implementation_;
  const auto stream = self.eventStream.get();
  std::lock_guard lock(stream->implementation().monitor);
  if (self.eventSource.exchange(source) == source) return;
  stream->streamFromURL(source, *this);
}

void KVLSession::didReceiveData(kvl::URLSession& /*session*/,
                                const std::shared_ptr<kvl::DataTask>& task, const kvl::Data& data) {
  const auto stream = eventStream();
  if (!delegate() || data.empty()) return;
  std::vector<std::shared_ptr<KVLEvent>> events;
  std::optional<kvl::session::DeliveryOrder::Turn> turn;
  {
    // A stream that is opened meanwhile must not find the rest of this one's last line.
    std::lock_guard lock(stream->implementation().monitor);
    if (!stream->isEqualToTask(*task)) return;
    events = stream->read(data);
    if (events.empty()) return;
    turn.emplace(implementation_->deliveries);
  }
  turn->wait();
  if (const auto receiver = delegate()) receiver->eventStream(*this, events);
}

void KVLSession::didCompleteWithError(kvl::URLSession& /*session*/,
                                      const std::shared_ptr<kvl::DataTask>& task,
                                      const std::optional<kvl::Error>& error) {
  const auto stream = eventStream();
  std::lock_guard lock(stream->implementation().monitor);
  if (!stream->isEqualToTask(*task)) return;
  if (restartsStream(error)) {
    queue()->async([session = shared_from_this(), stream, task] {
      std::lock_guard reopening(stream->implementation().monitor);
      // Somebody may have opened another stream in the meantime.
      if (!stream->isEqualToTask(*task)) return;
      stream->streamFromURL(task->originalRequest().urlText(), *session);
    });
    return;
  }
  logEnd(error);
  implementation_->reconnect(shared_from_this());
}
