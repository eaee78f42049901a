#include "platform/core/NoDestructor.h"
#include "platform/core/SystemLog.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>
#include <local/platform/PrintableText.h>

#include <utility>

namespace kvl {
namespace {

constexpr std::size_t kPositionLength = 4;

struct SinkHolder {
  Mutex mutex;
  LogSink sink KVL_GUARDED_BY(mutex);
  LogRecordSink recordSink KVL_GUARDED_BY(mutex);
};

// Threads may still log while the process exits.
SinkHolder& sinkHolder() {
  static NoDestructor<SinkHolder> holder;
  return *holder;
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

// The number in "%2$@" at the start of `text`, or 0.
std::size_t positionAt(std::string_view text) {
  const bool isPosition = text.size() >= kPositionLength && text.front() == '%' && text[1] >= '1' &&
                          text[1] <= '9' && text.substr(2, 2) == "$@";
  return isPosition ? static_cast<std::size_t>(text[1] - '0') : 0;
}

}  // namespace

LogSink setLogSink(LogSink sink) {
  SinkHolder& holder = sinkHolder();
  MutexLock lock(holder.mutex);
  return std::exchange(holder.sink, std::move(sink));
}

LogRecordSink setLogRecordSink(LogRecordSink sink) {
  SinkHolder& holder = sinkHolder();
  MutexLock lock(holder.mutex);
  return std::exchange(holder.recordSink, std::move(sink));
}

std::string_view nameOf(LogCategory category) noexcept {
  switch (category) {
    case LogCategory::general:
      return "general";
    case LogCategory::session:
      return "session";
    case LogCategory::notary:
      return "notary";
    case LogCategory::events:
      return "events";
    case LogCategory::loading:
      return "loading";
    case LogCategory::documents:
      return "documents";
    case LogCategory::menus:
      return "menus";
    case LogCategory::images:
      return "images";
    case LogCategory::keys:
      return "keys";
    case LogCategory::desktop:
      return "desktop";
  }
  return "general";
}

void logLine(LogCategory category, LogLevel level, std::string_view line) {
  SinkHolder& holder = sinkHolder();
  MutexLock lock(holder.mutex);
  if (!holder.sink && !holder.recordSink) {
    return core::writeToSystemLog(printable(line), category, level);
  }
  const std::string text = inOneLine(line);
  if (holder.sink) holder.sink(text);
  if (holder.recordSink) holder.recordSink({text, category, level});
}

void logLine(std::string_view line) {
  logLine(LogCategory::general, LogLevel::notice, line);
}

std::string fillPattern(std::string_view pattern, const std::vector<std::string>& arguments) {
  std::string text;
  std::size_t next = 0;
  const auto argument = [&arguments](std::size_t index) {
    return index < arguments.size() ? std::string_view(arguments[index]) : kNullText;
  };
  while (!pattern.empty()) {
    if (const std::size_t position = positionAt(pattern)) {
      text += argument(position - 1);
      pattern.remove_prefix(kPositionLength);
      continue;
    }
    const auto placeholder = placeholderAt(pattern);
    if (placeholder.empty()) {
      text += pattern.front();
      pattern.remove_prefix(1);
      continue;
    }
    if (placeholder == "%%") {
      text += '%';
    } else {
      text += argument(next++);
    }
    pattern.remove_prefix(placeholder.size());
  }
  return text;
}

}  // namespace kvl
