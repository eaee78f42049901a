// The log line of an answer that nobody else looks at.
#pragma once

#include <local/platform/URLRequest.h>

namespace kvl::encoding {

// Writes a status of 300 or more to the log, as "URL: status: 404 / Not Found".
void logFailedStatus(const URLResponse& response);

}  // namespace kvl::encoding
