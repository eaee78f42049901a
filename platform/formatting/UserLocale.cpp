#include "platform/formatting/UserLocale.h"

#include <time.h>

#include <cmath>
#include <cstdlib>

namespace kvl::formatting {
namespace {

// Far beyond the last year of RFC 3339, far below what a `time_t` holds.
constexpr double kLastSecond = 1e15;

}  // namespace

std::string userTimeLocale() {
  for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    std::string locale = value;
    if (locale == "C" || locale == "POSIX" || locale.starts_with("C.")) return "en_US_POSIX";
    return locale;
  }
  return "en_US_POSIX";
}

std::optional<Date> userWallClock(Date date) {
  const double second = std::floor(date.secondsSince1970());
  if (!(std::abs(second) <= kLastSecond)) return std::nullopt;
  tzset();  // localtime_r alone would stay with the first zone that it met
  const auto time = static_cast<time_t>(second);
  tm fields{};
  if (localtime_r(&time, &fields) == nullptr) return std::nullopt;
  return Date::since1970(second).adding(static_cast<double>(fields.tm_gmtoff));
}

}  // namespace kvl::formatting
