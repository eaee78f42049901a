/// @file
/// The log. Diagnostics are single lines; where they go is one function. Beside a line stand its
/// category and its level, for hosts whose own log has such.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Export.h>
#include <local/platform/URL.h>
#include <local/platform/Value.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvl {

/// Receives one finished line, without a line end: line feeds and carriage returns in it stand as
/// `\n` and `\r`, all else is as the service, the notary or a library wrote it. Use
/// `kvl::printable` before you show it on a terminal. Called from any thread, one call at a time;
/// it must not call the framework, wait for a thread that does, or write to the log itself: the
/// framework may hold locks while it logs. Hand the line over to somebody else for all of that.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the sink of the process and returns the one before; an empty function stands for the
/// system log. A host calls it to collect the framework's lines in its own log.
///
/// The system log is the journal when it takes the line, else `syslog(3)` when its socket exists,
/// else standard error; a line also goes to standard error when that is a terminal. It gets lines
/// as `kvl::printable` makes them, with the level as their priority; the journal also gets the name
/// of the category as `KVL_CATEGORY`.
KVL_EXPORT LogSink setLogSink(LogSink sink);

/// Writes one line: line ends are escaped, so that one diagnostic is one line. Never blocks on
/// anything but the sinks. Its category is `general`, its level `notice`.
KVL_EXPORT void logLine(std::string_view line);

/// How much a line matters, the least first.
enum class LogLevel : std::uint8_t {
  debug,    ///< for developers
  info,     ///< the usual course
  notice,   ///< what has no level of its own
  warning,  ///< something was ignored or is wrong, and work goes on
  error,    ///< something asked for was not done
};

/// What a line is about. Lines written without a category are `general`.
enum class LogCategory : std::uint8_t {
  general,    ///< what has no other, such as lines of a host's
  session,    ///< states, renewals, challenges
  notary,     ///< the notary's channel and its replies
  events,     ///< the event stream
  loading,    ///< requests and their errors
  documents,  ///< values that are not as expected, texts with dates, forms
  menus,      ///< descriptions of menus
  images,     ///< images and their decoder
  keys,       ///< key pairs and where they are kept
  desktop,    ///< web addresses and errors that are to be shown
};

/// The category's name in the log: "session" for `LogCategory::session`, and so on. Static storage.
[[nodiscard]] KVL_EXPORT std::string_view nameOf(LogCategory category) noexcept;

/// A line with what is known about it. The line is as a `LogSink` gets it, and valid during the
/// call only.
struct LogRecord {
  std::string_view line;                        ///< without a line end
  LogCategory category = LogCategory::general;  ///< what it is about
  LogLevel level = LogLevel::notice;            ///< how much it matters
};

/// Receives one record. The rules of `LogSink` hold.
using LogRecordSink = std::function<void(const LogRecord& record)>;

/// Replaces the record sink of the process and returns the one before; an empty function means
/// none. It stands beside the sink of lines: with both set, both are called, the sink of lines
/// first. While it alone is set, it takes the place of the system log.
KVL_EXPORT LogRecordSink setLogRecordSink(LogRecordSink sink);

/// Writes one line as the other `logLine` does, with its category and level.
KVL_EXPORT void logLine(LogCategory category, LogLevel level, std::string_view line);

/// @name Text of a value as the log shows it. What is absent prints as `(null)`.
/// @{

/// What stands for an absent value.
inline constexpr std::string_view kNullText = "(null)";
/// The text itself.
inline std::string describe(std::string_view text) {
  return std::string(text);
}
/// The text itself, or `kNullText` for null.
inline std::string describe(const char* text) {
  return text != nullptr ? std::string(text) : std::string(kNullText);
}
/// In decimal.
inline std::string describe(std::integral auto number) {
  return std::to_string(number);
}
/// Of a class with a `description()`: what that returns.
template <class T>
  requires requires(const T& object) {
    { object.description() } -> std::convertible_to<std::string>;
  }
std::string describe(const T& object) {
  return object.description();
}
/// Of the value, or `kNullText`.
template <class T>
std::string describe(const std::optional<T>& value) {
  return value ? describe(*value) : std::string(kNullText);
}
/// Of the object, or `kNullText` for null.
template <class T>
std::string describe(const std::shared_ptr<T>& object) {
  return object ? describe(*object) : std::string(kNullText);
}
/// @}

/// Fills the placeholders of `pattern` (`%@`, `%ld`, `%.2lf`, `%%` for a per cent sign) with
/// `arguments` in order, and `%2$@` with the second one, wherever it stands; a placeholder without
/// an argument prints as `(null)`.
[[nodiscard]] KVL_EXPORT std::string fillPattern(std::string_view pattern,
                                                 const std::vector<std::string>& arguments);

/// `fillPattern` with the description of each argument.
template <class... Arguments>
[[nodiscard]] std::string format(std::string_view pattern, const Arguments&... arguments) {
  return fillPattern(pattern, {describe(arguments)...});
}

/// Formats and writes one line.
template <class... Arguments>
void log(std::string_view pattern, const Arguments&... arguments) {
  logLine(format(pattern, arguments...));
}

/// Formats and writes one line with its category and level.
template <class... Arguments>
void log(LogCategory category, LogLevel level, std::string_view pattern,
         const Arguments&... arguments) {
  logLine(category, level, format(pattern, arguments...));
}

}  // namespace kvl
