// The event-stream grammar a second time: slow, and written to be obviously right.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvltest {

struct ReferenceEvent {
  std::optional<std::string> event;
  std::optional<std::string> data;
  std::optional<std::string> identifier;

  [[nodiscard]] std::string description() const;
};

class ReferenceParser {
 public:
  explicit ReferenceParser(std::size_t longestLine = std::string::npos)
      : longestLine_(longestLine) {}

  // The events that the chunk completes.
  [[nodiscard]] std::vector<ReferenceEvent> read(std::string_view chunk);

  [[nodiscard]] const std::string& carried() const { return carried_; }
  [[nodiscard]] const std::optional<std::string>& lastEventID() const { return lastEventID_; }
  // Whether the line that has not ended yet is too long already.
  [[nodiscard]] bool isGivenUp() const { return carried_.size() > longestLine_; }
  // The malformed lines, escaped as the log shows them.
  [[nodiscard]] const std::vector<std::string>& malformedLines() const { return malformedLines_; }

 private:
  void readField(const std::string& line, std::size_t colon);

  const std::size_t longestLine_;
  std::string carried_;
  std::optional<std::string> lastEventID_;
  std::vector<std::string> malformedLines_;
  ReferenceEvent current_;
};

}  // namespace kvltest
