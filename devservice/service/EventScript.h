// What the development service's event streams send: a script read from a request, and the text of
// the numbered events. Nothing here sends anything.
#pragma once

#include "devservice/service/Parameters.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace devservice {

// What happens after the last event.
enum class StreamEnd {
  Close,    // the response ends normally
  Silence,  // nothing more is sent; the response stays open
  Reset,    // half of one more event, then the connection breaks
};

// The greatest number that an event can have; a stream without `last` ends there.
inline constexpr std::int64_t kLastNumber = 999'999'999'999'999'999;
// The most bytes of one write.
inline constexpr std::int64_t kMostText = std::int64_t{1} << 26;

// The parameters of `/events`, named like the members unless a comment says otherwise. Event n is
// made of its number alone, so that streams go on after any restart of the service:
//   event: tick
//   id: 7
//   data: {"number":7}
//   (an empty line)
struct EventScript {
  std::string name = "tick";  // letters, digits, -._ ; at most 64
  std::int64_t first = 1;
  std::int64_t last = kLastNumber;
  // The response ends after that many events, the next one goes on.
  std::int64_t close = kLastNumber;
  // `close`, `silence` or `reset`.
  StreamEnd then = StreamEnd::Close;
  // Between two writes; 0 is full speed.
  std::chrono::milliseconds interval{0};
  // `pause-after`: in place of `interval`, `pause` comes after that many events of a response.
  std::optional<std::int64_t> pauseAfter;
  std::chrono::milliseconds pause{0};
  // Bytes of one whole event, for which it gets "padding":"xxx" beside the number.
  std::optional<std::int64_t> size;
  // So many events in one HTTP chunk. The last one of a response, and one before a pause, may hold
  // fewer.
  std::int64_t batch = 1;
  // Each event or batch in so many HTTP chunks of about equal size, with `gap` between them.
  std::int64_t pieces = 1;
  std::chrono::milliseconds gap{0};
  // All text is cut into HTTP chunks of that many bytes; only the last one is shorter. What does
  // not fill a chunk waits for the next event. Excludes `batch` and `pieces`.
  std::optional<std::int64_t> chunk;
  // `lf` or `crlf`.
  std::string newline = "\n";
};

// The script, or what is wrong with the parameters.
[[nodiscard]] std::variant<EventScript, std::string> parseEventScript(const Parameters& parameters);

// The number that a connection begins with when the client has seen `lastEventID`, which may be
// anything. One more than `last` when it has seen all.
[[nodiscard]] std::int64_t firstNumber(const EventScript& script, std::string_view lastEventID);

// Where one connection is in its script.
struct StreamPosition {
  std::int64_t next;      // number of the next event
  std::int64_t sent = 0;  // events of this connection
};

// How many events go into the next write; 0 at the end.
[[nodiscard]] std::int64_t nextBatch(const EventScript& script, const StreamPosition& position);
// How long to wait before the next write, or before the end.
[[nodiscard]] std::chrono::milliseconds waitBefore(const EventScript& script,
                                                   const StreamPosition& position);

// Part `index` of `text`, which is cut into `count` parts of about equal size; none is empty unless
// there are more parts than bytes.
[[nodiscard]] std::string_view piece(std::string_view text, std::int64_t index, std::int64_t count);

// Makes the text of events.
class EventText {
 public:
  explicit EventText(const EventScript& script);

  // The event with this number.
  void append(std::string& text, std::int64_t number) const;
  // The bytes of an event whose padding is empty.
  [[nodiscard]] std::size_t smallestPadded(std::int64_t number) const;

 private:
  std::string start_;
  std::string middle_;
  std::string end_;
  std::optional<std::size_t> size_;
};

}  // namespace devservice
