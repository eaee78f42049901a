#include "platform/formatting/LocalisedTime.h"

#include "platform/formatting/Texts.h"
#include "platform/formatting/UserLocale.h"

namespace kvl::formatting {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

std::optional<std::string> formatted(Date wallClock, DateStyle style, const std::string& locale) {
  auto* const all = texts();
  return all == nullptr ? std::nullopt : all->date(wallClock, style, locale);
}

// Without ICU or its data, the user still reads a length of time.
std::string plainDuration(std::int64_t seconds) {
  return std::to_string(seconds) + " s";
}

}  // namespace

std::optional<std::string> localisedDate(Date date, DateStyle style, const std::string& locale) {
  const auto wallClock = userWallClock(date);
  return wallClock ? formatted(*wallClock, style, locale) : std::nullopt;
}

std::optional<std::string> localisedTimeOfDay(std::int64_t seconds, const std::string& locale) {
  const auto second = (seconds % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay;
  return formatted(Date(static_cast<double>(second)), DateStyle::time, locale);
}

std::string spelledOutDuration(std::int64_t seconds, const std::string& locale) {
  auto* const all = texts();
  auto text = all == nullptr ? std::nullopt : all->duration(seconds, locale);
  return text ? *std::move(text) : plainDuration(seconds);
}

std::string spelledOutDuration(std::int64_t seconds) {
  return spelledOutDuration(seconds, userTimeLocale());
}

}  // namespace kvl::formatting
