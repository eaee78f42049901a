#include "platform/core/SystemLog.h"

#include <glib.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace kvl::core {
namespace {

// Unlike sd_journal_print, g_log_writer_journald tells whether the journal took the line.
bool writeToJournal(const std::string& line) {
  const std::array<GLogField, 3> fields{{
      {"MESSAGE", line.c_str(), -1},
      {"PRIORITY", "5", -1},
      {"GLIB_DOMAIN", "korvale.local", -1},
  }};
  return g_log_writer_journald(G_LOG_LEVEL_MESSAGE, fields.data(), fields.size(), nullptr) ==
         G_LOG_WRITER_HANDLED;
}

// syslog(3) loses lines silently when nobody listens. The host's openlog settings stay untouched.
bool writeToSyslog(const std::string& line) {
  if (access("/dev/log", W_OK) != 0) return false;
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
  return true;
}

}  // namespace

void writeToSystemLog(const std::string& line) {
  const bool taken = writeToJournal(line) || writeToSyslog(line);
  if (!taken || isatty(STDERR_FILENO) != 0) {
    const std::string text = line + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
}

}  // namespace kvl::core
