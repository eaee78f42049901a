#include "platform/formatting/LocalisedTime.h"
#include "platform/formatting/UserLocale.h"

#include <local/KVLEncoding.h>
#include <local/KVLEncodingLocale.h>
#include <local/KVLExtensionsDateFormatter.h>
#include <local/platform/Log.h>

#include <string.h>

#include <optional>

namespace KVLEncoding {
namespace {

using kvl::formatting::DateStyle;

// Entries apply to what others put in, so that a few could make a text of any length.
constexpr std::size_t kLongestText = std::size_t{1} << 20;

std::optional<DateStyle> dateStyleOfType(std::string_view type) {
  if (type == "date time") return DateStyle::dateAndTime;
  if (type == "date") return DateStyle::date;
  if (type == "time") return DateStyle::time;
  return std::nullopt;
}

std::optional<std::string> renderDate(std::string_view type, kvl::Date date) {
  const auto style = dateStyleOfType(type);
  if (!style) return std::nullopt;
  return localisedDate(date, *style, kvl::formatting::userTimeLocale());
}

std::optional<std::string> renderSeconds(std::string_view type, std::int64_t seconds) {
  if (type == "duration") return duration(seconds);
  if (type != "time") return std::nullopt;
  return kvl::formatting::localisedTimeOfDay(seconds, kvl::formatting::userTimeLocale());
}

std::string_view textOf(const std::optional<kvl::String>& string) {
  return string ? string->text() : std::string_view();
}

// What an entry puts in its token's place; none when that was reported.
std::optional<std::string> renderEntry(const kvl::Dictionary& entry) {
  const auto storedType = stringFromDictionary(entry, "type");
  const auto storedDate = stringFromDictionary(entry, "date");
  const auto type = textOf(storedType);
  const auto dateText = textOf(storedDate);
  const auto date = KVLExtensions::dateFromRFC3339(dateText);
  if (!date && !dateText.empty()) {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "invalid locale date: %@", dateText);
    return std::nullopt;
  }
  const auto seconds = integerFromDictionary(entry, "seconds", 0);
  auto value = date ? renderDate(type, *date) : renderSeconds(type, seconds);
  if (!value)
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning,
             "unknown or misconfigured locale type: %@ in %@", type, entry);
  return value;
}

// Where the token stands in the text at or behind `from`. `std::string::find` compares from each
// place anew, so that a text and a token of the service's choice cost the product of their lengths.
std::size_t findToken(std::string_view text, std::string_view token, std::size_t from) noexcept {
  const void* found = memmem(text.data() + from, text.size() - from, token.data(), token.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

// How many there were. What was put in is not searched again.
std::size_t replaceAll(std::string& text, std::string_view token, std::string_view value) {
  std::string result;
  std::size_t count = 0;
  std::size_t rest = 0;
  for (auto at = findToken(text, token, 0); at != std::string_view::npos;
       at = findToken(text, token, rest)) {
    result.append(text, rest, at - rest).append(value);
    rest = at + token.size();
    ++count;
  }
  if (count > 0) text = result.append(text, rest);
  return count;
}

// Whether replacing makes a text too long that was not before.
bool wouldBeTooLong(const std::string& text, std::string_view token, std::string_view value) {
  if (value.size() <= token.size()) return false;
  std::size_t length = text.size();
  for (auto at = findToken(text, token, 0); at != std::string_view::npos;
       at = findToken(text, token, at + token.size())) {
    length += value.size() - token.size();
    if (length > kLongestText) return true;
  }
  return false;
}

void applyEntry(std::string& text, const std::optional<kvl::Dictionary>& entry) {
  const auto token = stringFromDictionary(entry, "find");
  if (!token || token->empty()) {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "locale missing find");
    return;
  }
  const auto value = renderEntry(*entry);
  if (!value || value->empty()) return;
  if (wouldBeTooLong(text, *token, *value)) {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "locale text too long: '%@'", *token);
    return;
  }
  const auto count = replaceAll(text, *token, *value);
  if (count >= 2)
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning,
             "locale matched multiple: %ld in '%@' in '%@'", count, *token, text);
}

}  // namespace

constinit std::string_view KVLEncodingKeyText = "text";
constinit std::string_view KVLEncodingKeyLocale = "locale";

std::string stringWithLocales(std::string_view text, const kvl::Value& locales) {
  std::string result(text);
  const auto entries = locales.array();
  if (!entries && !locales.isNull())
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "expect locale as array: %@",
             locales);
  if (!entries) return result;
  for (const auto& entry : *entries) applyEntry(result, entry.dictionary());
  return result;
}

std::string duration(std::int64_t seconds) {
  return kvl::formatting::spelledOutDuration(seconds);
}

}  // namespace KVLEncoding
