#include "platform/core/SystemLog.h"

#include <syslog.h>

namespace kvl::core {

// syslog(3) does not tell whether anybody takes the line. The host's openlog settings stay
// untouched.
void writeToSystemLog(const std::string& line, LogCategory /*category*/, LogLevel level) {
  syslog(LOG_USER | priorityOf(level), "%s", line.c_str());
  writeToStandardError(line);
}

}  // namespace kvl::core
