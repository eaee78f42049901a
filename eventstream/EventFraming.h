// Which bytes of an event stream are handed over together.
#pragma once

#include "platform/urlloading/BodyFraming.h"

#include <chrono>
#include <cstddef>
#include <string_view>

namespace kvl::eventstream {

// The fields of an event do not survive the end of a chunk (WHATWG HTML, 9.2, says what an event
// is). So what the network delivers together is one chunk: while more can be read it goes on
// growing, one that has to go before that ends after an empty line, and the beginning of an event
// waits a moment for the rest. Only what comes later than that came apart and is cut.
class EventFraming final : public urlloading::BodyFraming {
 public:
  // A chunk goes once it has this size, or has been growing for this long.
  static constexpr std::size_t kChunkSize = std::size_t{1} << 20;
  static constexpr std::chrono::milliseconds kGrowingTime{20};
  // How long the rest of an event may take to follow its beginning: longer than a busy machine
  // keeps a service from running that has more to write.
  static constexpr std::chrono::milliseconds kSettlingTime{50};
  // A longer event is cut, unless the constructor says otherwise.
  static constexpr std::size_t kLongestEvent = std::size_t{64} << 20;

  explicit EventFraming(std::size_t longestEvent = kLongestEvent) noexcept
      : longestEvent_(longestEvent) {}

  void arrived(std::string_view pending, std::size_t from, Time now) override;
  std::size_t due(std::size_t pending, Source source, Time now) override;
  void taken(std::string_view pending, std::size_t count) override;
  Time latest() const override { return lastArrival_ + kSettlingTime; }

 private:
  [[nodiscard]] std::size_t dueWhileFlowing(std::size_t pending, Time now) const;
  void findEventsEnd(std::string_view pending, std::size_t from);
  // Whether the line that ends there is empty.
  [[nodiscard]] bool isEmptyLine(std::string_view pending, std::size_t end) const;

  const std::size_t longestEvent_;
  // Behind the last empty line, where no event is open.
  std::size_t eventsEnd_ = 0;
  // Whether a line begins where the pending bytes begin.
  bool beginsLine_ = true;
  // Whether the last pass brought anything.
  bool arrived_ = false;
  Time firstArrival_;
  Time lastArrival_;
};

}  // namespace kvl::eventstream
