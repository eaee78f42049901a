#include "devservice/EventScript.h"
#include "devservice/Log.h"
#include "devservice/Routes.h"
#include "devservice/StreamConnection.h"

#include <httplib.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <iterator>

namespace devservice {
namespace {

// Plays a script to one client. Every function is false when the connection is to break, which it
// does when the client left, when the service ends, and when the script says so.
class EventStream {
 public:
  EventStream(const EventScript& script, std::int64_t first, StreamConnection& connection)
      : script_(script), text_(script), connection_(connection), position_{first} {}

  [[nodiscard]] bool play();
  [[nodiscard]] std::int64_t sent() const noexcept { return position_.sent; }

 private:
  [[nodiscard]] bool sendBatch(std::int64_t count);
  [[nodiscard]] bool sendPieces();
  [[nodiscard]] bool sendWholeChunks();
  [[nodiscard]] bool end();

  const EventScript& script_;
  const EventText text_;
  StreamConnection& connection_;
  StreamPosition position_;
  std::string pending_;  // made and not yet sent
};

bool EventStream::play() {
  while (connection_.pass(waitBefore(script_, position_))) {
    const std::int64_t count = nextBatch(script_, position_);
    if (count == 0) return end();
    if (!sendBatch(count)) return false;
  }
  return false;
}

bool EventStream::sendBatch(std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) text_.append(pending_, position_.next + i);
  if (!(script_.chunk ? sendWholeChunks() : sendPieces())) return false;
  position_.next += count;
  position_.sent += count;
  return true;
}

bool EventStream::sendPieces() {
  const std::int64_t count = std::min(script_.pieces, std::ssize(pending_));
  for (std::int64_t i = 0; i < count; ++i) {
    if (i > 0 && !connection_.pass(script_.gap)) return false;
    if (!connection_.writeChunk(piece(pending_, i, count))) return false;
  }
  pending_.clear();
  return true;
}

bool EventStream::sendWholeChunks() {
  const auto size = static_cast<std::size_t>(*script_.chunk);
  std::string_view rest = pending_;
  for (; rest.size() >= size; rest.remove_prefix(size))
    if (!connection_.writeChunk(rest.substr(0, size))) return false;
  pending_.erase(0, pending_.size() - rest.size());
  return true;
}

bool EventStream::end() {
  if (script_.then == StreamEnd::Reset) {
    std::string event;
    text_.append(event, position_.next);
    pending_ += piece(event, 0, 2);
  }
  if (script_.chunk && !sendWholeChunks()) return false;
  if (!pending_.empty() && !connection_.writeChunk(pending_)) return false;
  if (script_.then == StreamEnd::Silence) connection_.waitForEnd();
  return script_.then == StreamEnd::Close;
}

bool stream(ServiceState& state, SSL& tls, const EventScript& script, std::int64_t first,
            httplib::DataSink& sink) {
  log("events: a stream begins with number " + std::to_string(first));
  StreamConnection connection(state, tls);
  EventStream events(script, first, connection);
  const bool isWhole = events.play();
  log("events: a stream ends after " + std::to_string(events.sent()) + " events");
  // The library would not wait long for a client that does not read.
  if (!isWhole || !connection.waitWritable()) return false;
  sink.done();
  return true;
}

void events(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto parsed = parseEventScript(request.params);
  if (const auto* complaint = std::get_if<std::string>(&parsed))
    return refuse(response, *complaint);
  const auto& script = std::get<EventScript>(parsed);
  const std::int64_t first = firstNumber(script, request.get_header_value("Last-Event-ID"));
  // The library lets handlers only look at the connection. Its own way to send chunks gives up on
  // clients that pause, and takes several times as long for small ones.
  auto& tls = const_cast<SSL&>(*request.ssl);
  response.set_header("Cache-Control", "no-store");
  // This media type is never compressed.
  response.set_chunked_content_provider(
      "text/event-stream", [&state, &tls, script, first](std::size_t, httplib::DataSink& sink) {
        return stream(state, tls, script, first, sink);
      });
}

}  // namespace

void addEventRoutes(httplib::Server& server, ServiceState& state) {
  server.Get("/events",
             [&state](const auto& request, auto& response) { events(state, request, response); });
}

}  // namespace devservice
