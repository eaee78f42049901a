// The parser beside the reference.
#pragma once

#include "eventstream/EventStreamParser.h"
#include "tests/eventstream/ReferenceParser.h"
#include "tests/support/LogCapture.h"

#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

class ParserComparison {
 public:
  ParserComparison() = default;
  explicit ParserComparison(std::size_t longestLine) : reference_(longestLine) {
    state_.setLongestLine(longestLine);
  }

  // Gives both the same chunk. What differs, or an empty text.
  [[nodiscard]] std::string read(std::string_view chunk) {
    std::vector<std::string> expected;
    for (const auto& event : reference_.read(chunk)) expected.push_back(event.description());
    std::vector<std::string> found;
    for (const auto& event : state_.read(kvl::Data::fromText(chunk)))
      found.push_back(event->description());
    if (found != expected) return "events: " + joined(found) + " instead of " + joined(expected);
    return looksAtData_ ? differenceInData() : std::string();
  }

  // Leaves the carried line to the parser alone from now on.
  void lookAway() { looksAtData_ = false; }

  [[nodiscard]] std::string differenceInData() const {
    const auto carried = reference_.isGivenUp() ? std::string() : reference_.carried();
    if (state_.data()->text() != carried) return "the carried line";
    if (state_.lastEventID() != reference_.lastEventID()) return "the last event identifier";
    return {};
  }

  [[nodiscard]] const std::vector<std::string>& malformedLines() const {
    return reference_.malformedLines();
  }

 private:
  static std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const auto& text : texts) all += "[" + text + "]";
    return all;
  }

  bool looksAtData_ = true;
  ReferenceParser reference_;
  kvl::eventstream::EventStreamParser state_;
};

}  // namespace kvltest
