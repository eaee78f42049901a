// The log line of an answer that nobody else looks at.
#pragma once

#include <local/KVLExtensions.h>
#include <local/platform/Log.h>

namespace kvl::encoding {

// Writes a status of 300 or more to the log, as "URL: status: 404 / Not Found".
inline void logFailedStatus(const URLResponse& response) {
  constexpr std::int64_t kLowestLogged = 300;
  const auto status = KVLExtensions::statusCode(response);
  if (status < kLowestLogged) return;
  log(LogCategory::loading, LogLevel::warning, "%@: status: %ld / %@",
      response.url.absoluteString(), status, localizedStringForStatusCode(status));
}

}  // namespace kvl::encoding
