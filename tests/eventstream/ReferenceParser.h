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
  // The events that the chunk completes.
  [[nodiscard]] std::vector<ReferenceEvent> read(std::string_view chunk);

  [[nodiscard]] const std::string& carried() const { return carried_; }
  [[nodiscard]] const std::optional<std::string>& lastEventID() const { return lastEventID_; }
  // The lines that were given up, escaped as the log shows them.
  [[nodiscard]] const std::vector<std::string>& malformedLines() const { return malformedLines_; }

 private:
  void readField(const std::string& line, std::size_t colon);

  std::string carried_;
  std::optional<std::string> lastEventID_;
  std::vector<std::string> malformedLines_;
  ReferenceEvent current_;
};

}  // namespace kvltest
