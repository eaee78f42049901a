// Reads the head of a response line by line.
#pragma once

#include <local/platform/URLRequest.h>

#include <string_view>

namespace kvl::urlloading {

// Interim responses (1xx) are passed over: only the final head is kept.
class ResponseHead {
 public:
  // Takes one line, its end included. True when it ended the final head; lines after that
  // (trailers) are ignored.
  [[nodiscard]] bool take(std::string_view line);

  [[nodiscard]] bool isComplete() const noexcept { return complete_; }
  [[nodiscard]] int status() const noexcept { return status_; }
  // 10, 11 or 20.
  [[nodiscard]] int version() const noexcept { return version_; }
  [[nodiscard]] const HeaderFields& fields() const noexcept { return fields_; }

 private:
  void takeStatusLine(std::string_view line);
  void takeField(std::string_view line);

  HeaderFields fields_;
  int status_ = 0;
  int version_ = 0;
  bool complete_ = false;
};

}  // namespace kvl::urlloading
