// Event streams: /events, which plays a script, and /feed, which tells what the service does.

#include "devservice/Log.h"
#include "devservice/service/EventScript.h"
#include "devservice/service/Parameters.h"
#include "devservice/service/Routes.h"
#include "devservice/service/ServiceState.h"

#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace devservice {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr int kForever = -1;
constexpr timeval kNoTimeout{};

void setSendTimeout(int socket, const timeval& timeout) {
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

timeval sendTimeoutOf(int socket) {
  timeval timeout{};
  socklen_t size = sizeof timeout;
  getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, &size);
  return timeout;
}

// The TLS connection of a response that may go on for ever.
//
// Every wait ends at once when the client leaves or the service ends, also the one for a client
// that does not read, which may otherwise take for ever. Lives on the thread that serves the
// connection, and only while nobody else uses that. What is written is under way at the latest when
// a wait begins or this ends: small writes in a row share packets, each in a TLS record of its own.
class StreamConnection {
 public:
  // Both must outlive this.
  StreamConnection(ServiceState& state, SSL& tls);
  ~StreamConnection();
  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;

  // One write to the TLS connection. False when nobody is there to read it.
  [[nodiscard]] bool write(std::string_view bytes);
  // The same for one HTTP chunk: head, bytes and end together. An empty one ends the response.
  [[nodiscard]] bool writeChunk(std::string_view bytes);
  // Waits until something can be written at once; false when nobody is there to read it.
  [[nodiscard]] bool waitWritable();
  // Lets that time pass; false when the client left or the service ends meanwhile.
  [[nodiscard]] bool pass(std::chrono::milliseconds time);
  // Returns when the client left or the service ends.
  void waitForEnd();

 private:
  void setHeldTogether(bool isHeld);
  // What happens to the connection in that time: its end, or a `wanted` one; 0 for neither.
  short waitFor(short wanted, int milliseconds);

  ServiceState& state_;
  SSL& tls_;
  const int socket_;
  timeval sendTimeout_{};  // the one that it had
  std::string frame_;      // of the last chunk; kept for its memory
};

StreamConnection::StreamConnection(ServiceState& state, SSL& tls)
    : state_(state), tls_(tls), socket_(SSL_get_fd(&tls)), sendTimeout_(sendTimeoutOf(socket_)) {
  setSendTimeout(socket_, kNoTimeout);
  setHeldTogether(true);
  state_.addStream(socket_);
}

StreamConnection::~StreamConnection() {
  state_.removeStream(socket_);
  setHeldTogether(false);
  setSendTimeout(socket_, sendTimeout_);
}

bool StreamConnection::write(std::string_view bytes) {
  std::size_t written = 0;
  if (SSL_write_ex(&tls_, bytes.data(), bytes.size(), &written) == 1) return true;
  ERR_clear_error();
  return false;
}

bool StreamConnection::writeChunk(std::string_view bytes) {
  std::array<char, 2 * sizeof bytes.size()> size{};
  const auto end = std::to_chars(size.data(), size.data() + size.size(), bytes.size(), 16).ptr;
  frame_.assign(size.data(), end).append(kLineEnd).append(bytes).append(kLineEnd);
  return write(frame_);
}

bool StreamConnection::waitWritable() {
  return waitFor(POLLOUT, kForever) == POLLOUT;
}

bool StreamConnection::pass(std::chrono::milliseconds time) {
  return time.count() == 0 || waitFor(0, static_cast<int>(time.count())) == 0;
}

void StreamConnection::waitForEnd() {
  waitFor(0, kForever);
}

void StreamConnection::setHeldTogether(bool isHeld) {
  const int flag = isHeld ? 1 : 0;
  setsockopt(socket_, IPPROTO_TCP, TCP_CORK, &flag, sizeof flag);
}

short StreamConnection::waitFor(short wanted, int milliseconds) {
  setHeldTogether(false);
  pollfd entry{socket_, static_cast<short>(wanted | POLLRDHUP), 0};
  int count = 0;
  do {
    count = poll(&entry, 1, milliseconds);
  } while (count < 0 && errno == EINTR);
  setHeldTogether(true);
  return entry.revents;
}

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

constexpr std::int64_t kLongestInterval = 600'000;
// How long a follower waits at most for something new.
constexpr std::chrono::milliseconds kLook{40};

// Returns when the client left or the service ends.
void follow(ServiceState& state, SSL& tls, std::int64_t position,
            std::optional<std::chrono::milliseconds> interval) {
  StreamConnection connection(state, tls);
  bool isThere = true;
  while (isThere) {
    if (interval) state.feed().tickEvery(*interval);
    const std::string text = state.feed().take(position);
    isThere = (text.empty() || connection.writeChunk(text)) && connection.pass(kLook);
  }
}

void feed(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto interval = number(request.params, "interval", 1, kLongestInterval);
  if (request.has_param("interval") && !interval)
    return refuse(response, "interval must be a number from 1 to 600000");
  const auto ticks = interval ? std::optional(std::chrono::milliseconds(*interval)) : std::nullopt;
  const auto position = state.feed().positionAfter(request.get_header_value("Last-Event-ID"));
  // The library lets handlers only look at the connection.
  auto& tls = const_cast<SSL&>(*request.ssl);
  response.set_header("Cache-Control", "no-store");
  response.set_chunked_content_provider(
      "text/event-stream", [&state, &tls, position, ticks](std::size_t, httplib::DataSink&) {
        follow(state, tls, position, ticks);
        return false;
      });
}

}  // namespace

void addStreamRoutes(httplib::Server& server, ServiceState& state) {
  server.Get("/events",
             [&state](const auto& request, auto& response) { events(state, request, response); });
  server.Get("/feed",
             [&state](const auto& request, auto& response) { feed(state, request, response); });
}

}  // namespace devservice
