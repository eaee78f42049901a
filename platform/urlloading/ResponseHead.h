// The head of a response, read line by line, and the request to which a redirect leads.
#pragma once

#include <local/platform/URLRequest.h>

#include <optional>
#include <string_view>
#include <utility>

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
  // Nothing is left of them.
  [[nodiscard]] HeaderFields takeFields() noexcept { return std::exchange(fields_, {}); }

 private:
  void takeStatusLine(std::string_view line);
  void takeField(std::string_view line);

  HeaderFields fields_;
  int status_ = 0;
  int version_ = 0;
  // Whether no head has begun since the last one ended. Within one, all lines are fields, however
  // they look.
  bool begins_ = true;
  bool complete_ = false;
};

// The request that follows `request` after a response with this status and these fields, or absent
// when the response is not a redirect that may be followed. A redirect never leads from https to
// http, and what the caller set to authenticate itself does not travel to another host.
// @pre `request` has a URL.
[[nodiscard]] std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                                          const HeaderFields& fields);

}  // namespace kvl::urlloading
