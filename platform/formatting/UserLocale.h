// The user's locale and clock, read from the environment anew each time.
#pragma once

#include <local/platform/Date.h>

#include <optional>
#include <string>

namespace kvl::formatting {

// The POSIX locale of the user's dates and lengths of time: LC_ALL, else LC_TIME, else LANG, by the
// environment's own rules ("C" and "POSIX" count as en_US_POSIX). ICU's default follows LC_MESSAGES
// instead. Thread-safe while nobody changes the environment.
[[nodiscard]] std::string userTimeLocale();

// The POSIX locales of the user's texts with colons between them, the most wanted first: those of
// LANGUAGE, then LC_ALL, else LC_MESSAGES, else LANG. In the C locale LANGUAGE does not count.
// Thread-safe while nobody changes the environment.
[[nodiscard]] std::string userMessageLocales();

inline constexpr const char* kCLocale = "en_US_POSIX";
// `locale`, or that for the C locale's names. Here, since what needs ICU is a module of its own.
[[nodiscard]] inline std::string withoutCLocale(std::string locale) {
  if (locale == "C" || locale == "POSIX" || locale.starts_with("C.")) return kCLocale;
  return locale;
}

// The date at which a clock in GMT shows the day and time that the user's clock shows at `date`, to
// the whole second. None where the system cannot tell: beyond its years, for no number.
//
// The zone is the system's, `TZ` in any of its forms or else /etc/localtime; a change of the former
// counts from the next call, a change of the latter a second later at most. Thread-safe while
// nobody changes the environment.
[[nodiscard]] std::optional<Date> userWallClock(Date date);

}  // namespace kvl::formatting
