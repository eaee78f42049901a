// Any length of time, date and number of updates in any locale: there is a text in UTF-8, and in
// some locales it is known which.
#include "fuzz/Choices.h"
#include "platform/core/UTF8.h"
#include "platform/formatting/LocalisedTime.h"
#include "platform/formatting/UserLocale.h"

#include <local/platform/UpdateCount.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace {

using kvl::formatting::DateStyle;
using kvl::fuzz::Choices;
using kvl::fuzz::require;

constexpr std::int64_t kSecondsOfDay = 86400;

std::string localeFrom(Choices& choices) {
  constexpr std::array<const char*, 16> kLocales{
      "en_US", "en_US", "de_DE.UTF-8", "C",     "ar_EG", "fa_IR", "ja_JP",      "th_TH",
      "ru_RU", "pl_PL", "sr_RS@latin", "pt_AO", "xx_YY", "",      "zh-Hant-TW", "free"};
  std::string chosen = choices.of(kLocales);
  if (chosen != "free") return chosen;
  std::string name(choices.text(24));
  std::erase(name, '\0');
  return name;
}

// With a comma before each three digits.
std::string inEnglish(std::uint64_t number) {
  auto digits = std::to_string(number);
  for (auto end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, ",");
  return digits;
}

std::string counted(std::uint64_t number, const char* unit) {
  return inEnglish(number) + " " + unit + (number == 1 ? "" : "s");
}

std::string durationInEnglish(std::int64_t seconds) {
  const auto length =
      seconds < 0 ? 0 - static_cast<std::uint64_t>(seconds) : static_cast<std::uint64_t>(seconds);
  std::string text;
  const auto add = [&](std::uint64_t number, const char* unit) {
    if (number > 0) text += (text.empty() ? "" : ", ") + counted(number, unit);
  };
  add(length / 3600, "hour");
  add(length / 60 % 60, "minute");
  add(length % 60, "second");
  return (seconds < 0 ? "-" : "") + (text.empty() ? "0 seconds" : text);
}

void checkDuration(std::int64_t seconds, const std::string& locale) {
  const auto text = kvl::formatting::spelledOutDuration(seconds, locale);
  require(!text.empty() && kvl::core::isUTF8(text), "a length of time has a text");
  require(kvl::formatting::spelledOutDuration(seconds, "en_US") == durationInEnglish(seconds),
          "English is as it is");
  if (seconds >= 0 || seconds == std::numeric_limits<std::int64_t>::min()) return;
  require(text == "-" + kvl::formatting::spelledOutDuration(-seconds, locale),
          "a negative length has one sign");
}

void checkTimeOfDay(std::int64_t seconds, const std::string& locale) {
  const auto second = (seconds % kSecondsOfDay + kSecondsOfDay) % kSecondsOfDay;
  const auto text = kvl::formatting::localisedTimeOfDay(seconds, locale);
  require(text && kvl::core::isUTF8(*text), "a time of day has a text");
  require(text == kvl::formatting::localisedTimeOfDay(second, locale), "whole days are left out");
  std::array<char, 16> plain{};
  std::snprintf(plain.data(), plain.size(), "%02d:%02d", static_cast<int>(second / 3600),
                static_cast<int>(second / 60 % 60));
  require(kvl::formatting::localisedTimeOfDay(seconds, "de_DE") == plain.data(),
          "German is as it is");
}

void checkDate(double seconds, const std::string& locale) {
  const kvl::Date date(seconds);
  const auto clock = kvl::formatting::userWallClock(date);
  require(!clock || std::abs(clock->secondsSince(date)) <= kSecondsOfDay + 1,
          "a clock shows the time of some zone");
  for (const auto style : {DateStyle::dateAndTime, DateStyle::date, DateStyle::time}) {
    const auto text = kvl::formatting::localisedDate(date, style, locale);
    require(text.has_value() == clock.has_value(), "what a clock shows has a text");
    require(!text || kvl::core::isUTF8(*text), "a date is UTF-8");
  }
}

void checkUpdates(std::int64_t count, const std::string& locale) {
  const auto text = kvl::localizedUpdateCount(count, locale);
  require(!text.empty() && kvl::core::isUTF8(text), "a number of updates has a text");
  const auto size =
      count < 0 ? 0 - static_cast<std::uint64_t>(count) : static_cast<std::uint64_t>(count);
  const auto expected = (count < 0 ? "-" : "") + counted(size, "update");
  const auto english = kvl::localizedUpdateCount(count, "en_US");
  require(english == expected || (count == -1 && english == "-1 updates"), "English is as it is");
}

void checkLocalised(kvl::fuzz::Input input) {
  Choices choices(input);
  const auto number = choices.number(8) >> choices.below(64);
  const auto seconds =
      choices.yes() ? static_cast<std::int64_t>(0 - number) : static_cast<std::int64_t>(number);
  double real = static_cast<double>(seconds);
  if (choices.yes()) std::memcpy(&real, &number, sizeof real);
  const auto locale = localeFrom(choices);
  checkDuration(seconds, locale);
  checkTimeOfDay(seconds, locale);
  checkDate(real, locale);
  checkUpdates(seconds, locale);
}

const kvl::fuzz::Target localised("localised", checkLocalised);

}  // namespace
