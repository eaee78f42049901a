#include "platform/core/NoDestructor.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>
#include <local/platform/PrintableText.h>

#include <glib.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

namespace kvl {
namespace {

struct SinkHolder {
  Mutex mutex;
  LogSink sink KVL_GUARDED_BY(mutex);
};

// Threads may still log while the process exits.
SinkHolder& sinkHolder() {
  static NoDestructor<SinkHolder> holder;
  return *holder;
}

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

// Writes one line, which is printable, to the log of the operating system.
void writeToSystemLog(const std::string& line) {
  const bool taken = writeToJournal(line) || writeToSyslog(line);
  if (!taken || isatty(STDERR_FILENO) != 0) {
    const std::string text = line + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
  }
}

// A sink keeps the line as it is, but as one line.
std::string inOneLine(std::string_view line) {
  std::string text;
  text.reserve(line.size());
  for (const char character : line) {
    if (character == '\n') {
      text += "\\n";
    } else if (character == '\r') {
      text += "\\r";
    } else {
      text += character;
    }
  }
  return text;
}

// The placeholder at the start of `text`, or empty.
std::string_view placeholderAt(std::string_view text) {
  for (const std::string_view known : {"%@", "%ld", "%.2lf", "%%"}) {
    if (text.starts_with(known)) return known;
  }
  return {};
}

}  // namespace

LogSink setLogSink(LogSink sink) {
  SinkHolder& holder = sinkHolder();
  MutexLock lock(holder.mutex);
  return std::exchange(holder.sink, std::move(sink));
}

void logLine(std::string_view line) {
  SinkHolder& holder = sinkHolder();
  MutexLock lock(holder.mutex);
  if (holder.sink) {
    holder.sink(inOneLine(line));
  } else {
    writeToSystemLog(printable(line));
  }
}

std::string fillPattern(std::string_view pattern, const std::vector<std::string>& arguments) {
  std::string text;
  std::size_t next = 0;
  while (!pattern.empty()) {
    const auto placeholder = placeholderAt(pattern);
    if (placeholder.empty()) {
      text += pattern.front();
      pattern.remove_prefix(1);
      continue;
    }
    if (placeholder == "%%") {
      text += '%';
    } else {
      text += next < arguments.size() ? std::string_view(arguments[next]) : kNullText;
      ++next;
    }
    pattern.remove_prefix(placeholder.size());
  }
  return text;
}

}  // namespace kvl
