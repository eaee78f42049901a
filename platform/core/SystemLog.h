// The log of the operating system.
#pragma once

#include <local/platform/Log.h>

#include <string>

namespace kvl::core {

// Writes one line, which is printable. To the standard error as well when nobody else has taken it,
// or somebody looks on.
void writeToSystemLog(const std::string& line, LogCategory category, LogLevel level);

// As syslog(3) knows it.
[[nodiscard]] int priorityOf(LogLevel level) noexcept;

// With its end of line, in one piece.
void writeToStandardError(const std::string& line);

}  // namespace kvl::core
