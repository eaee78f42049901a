#include "platform/core/SystemLog.h"

#include <local/platform/Log.h>

#include <mutex>
#include <utility>

namespace kvl {
namespace {

struct SinkHolder {
  std::mutex mutex;
  LogSink sink;
};

// Never destroyed: threads may still log while the process exits.
SinkHolder& holder() {
  static auto& instance = *new SinkHolder;
  return instance;
}

void appendEscaped(std::string& text, unsigned char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  if (byte == '\n') {
    text += "\\n";
  } else if (byte == '\r') {
    text += "\\r";
  } else if (byte == '\t') {
    text += "\\t";
  } else {
    text += "\\x";
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
}

std::string escapingControls(std::string_view line) {
  std::string text;
  text.reserve(line.size());
  for (const char character : line) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7f) {
      appendEscaped(text, byte);
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
  std::lock_guard lock(holder().mutex);
  return std::exchange(holder().sink, std::move(sink));
}

void logLine(std::string_view line) {
  const auto text = escapingControls(line);
  std::lock_guard lock(holder().mutex);
  if (holder().sink) {
    holder().sink(text);
  } else {
    core::writeToSystemLog(text);
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
