// Dates, times of day and lengths of time as the user writes them.
#pragma once

#include <local/platform/Date.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kvl::formatting {

// Dates are of medium length ("May 1, 2024"), times short ("2:34 PM").
enum class DateStyle : std::uint8_t { dateAndTime, date, time };

// `date` on the user's clock, in the calendar and the digits of `locale` (a POSIX or BCP 47 name;
// one that nobody knows gives the general form). None for a date that the user's clock cannot show.
//
// Formatters are kept between calls, a few locales' worth. Thread-safe: calls at one time use
// formatters of their own, and the lock is not held while formatting.
[[nodiscard]] std::optional<std::string> localisedDate(Date date, DateStyle style,
                                                       const std::string& locale);

// The time of day that lies `seconds` after midnight, whole days left out; those before midnight
// are of the evening before. Neither zone nor clock change matters. Thread-safe as above.
[[nodiscard]] std::optional<std::string> localisedTimeOfDay(std::int64_t seconds,
                                                            const std::string& locale);

// Hours, minutes and seconds spelled out in `locale`, zero parts dropped, "0 seconds" for zero;
// one sign in front of a negative length. Thread-safe.
[[nodiscard]] std::string spelledOutDuration(std::int64_t seconds, const std::string& locale);

// The same in the user's locale (`userTimeLocale`).
[[nodiscard]] std::string spelledOutDuration(std::int64_t seconds);

}  // namespace kvl::formatting
