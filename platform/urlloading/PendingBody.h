// The part of a body that has arrived and was not handed over yet.
#pragma once

#include "platform/urlloading/TLSConnection.h"

#include <local/platform/Data.h>

#include <chrono>
#include <cstddef>
#include <string_view>

namespace kvl::urlloading {

// Collects a body and tells how much of it makes the next chunk: all of it, unless the body is a
// stream of events (WHATWG HTML, 9.2). There, what the network delivers together is one chunk:
// while more can be read it goes on growing, one that has to go before that ends after an empty
// line, and the beginning of an event waits a moment for the rest. Only what comes later than that
// came apart and is cut. One thread.
class PendingBody {
 public:
  // A chunk of events goes once it has this size, or has been growing for this long.
  static constexpr std::size_t kChunkSize = std::size_t{1} << 20;
  static constexpr std::chrono::milliseconds kGrowingTime{20};
  // How long the rest of an event may take to follow its beginning: longer than a busy machine
  // keeps a service from running that has more to write.
  static constexpr std::chrono::milliseconds kSettlingTime{50};
  // A longer event is cut.
  static constexpr std::size_t kLongestEvent = std::size_t{64} << 20;

  enum class Kind { plain, events };
  enum class Source {
    quiet,    // nothing to read
    flowing,  // more to read at once
    held,     // nothing is read until the delegate has caught up
  };

  explicit PendingBody(Kind kind) noexcept : kind_(kind) {}

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  void append(std::string_view bytes, SteadyTime now);
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  [[nodiscard]] bool empty() const noexcept { return bytes_.empty(); }

  // The length of the chunk that is to go, or 0. Called once after each pass of reading, which
  // began at `now`: the time that a thread is kept from reading does not count.
  [[nodiscard]] std::size_t due(Source source, SteadyTime now);
  // When bytes of a quiet source are due at the latest.
  [[nodiscard]] SteadyTime latest() const;

  // Takes that many bytes off the front.
  [[nodiscard]] Bytes take(std::size_t count);

 private:
  [[nodiscard]] std::size_t dueWhileFlowing(SteadyTime now) const;
  void findEventsEnd(std::size_t from);
  // Whether the line that ends there is empty.
  [[nodiscard]] bool isEmptyLine(std::size_t end) const;

  const Kind kind_;
  Bytes bytes_;
  // Behind the last empty line, where no event is open.
  std::size_t eventsEnd_ = 0;
  // Whether a line begins where `bytes_` begins.
  bool beginsLine_ = true;
  // Whether the last pass brought anything.
  bool arrived_ = false;
  SteadyTime firstArrival_;
  SteadyTime lastArrival_;
};

}  // namespace kvl::urlloading
