#include "platform/core/SystemLog.h"

#include <glib.h>
#include <syslog.h>
#include <unistd.h>

#include <array>

namespace kvl::core {
namespace {

// Unlike sd_journal_print, g_log_writer_journald tells whether the journal took the line.
bool writeToJournal(const std::string& line, LogCategory category, LogLevel level) {
  const std::string priority = std::to_string(priorityOf(level));
  const std::string name(nameOf(category));
  const std::array<GLogField, 4> fields{{
      {"MESSAGE", line.c_str(), -1},
      {"PRIORITY", priority.c_str(), -1},
      {"GLIB_DOMAIN", "korvale.local", -1},
      {"KVL_CATEGORY", name.c_str(), -1},
  }};
  return g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields.data(), fields.size(), nullptr) ==
         G_LOG_WRITER_HANDLED;
}

// syslog(3) loses lines silently when nobody listens. The host's openlog settings stay untouched.
bool writeToSyslog(const std::string& line, LogLevel level) {
  if (access("/dev/log", W_OK) != 0) return false;
  syslog(LOG_USER | priorityOf(level), "%s", line.c_str());
  return true;
}

}  // namespace

void writeToSystemLog(const std::string& line, LogCategory category, LogLevel level) {
  const bool taken = writeToJournal(line, category, level) || writeToSyslog(line, level);
  if (!taken || isatty(STDERR_FILENO) != 0) writeToStandardError(line);
}

}  // namespace kvl::core
