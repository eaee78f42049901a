#include "platform/core/SystemLog.h"

#include <syslog.h>

#include <cstdio>

namespace kvl::core {

int priorityOf(LogLevel level) noexcept {
  switch (level) {
    case LogLevel::debug:
      return LOG_DEBUG;
    case LogLevel::info:
      return LOG_INFO;
    case LogLevel::notice:
      return LOG_NOTICE;
    case LogLevel::warning:
      return LOG_WARNING;
    case LogLevel::error:
      return LOG_ERR;
  }
  return LOG_NOTICE;
}

void writeToStandardError(const std::string& line) {
  const std::string text = line + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace kvl::core
