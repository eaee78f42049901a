// The user's locale and clock, read from the environment anew each time.
#pragma once

#include "platform/core/MessageLocales.h"

#include <local/platform/Date.h>

#include <optional>
#include <string>

namespace kvl::formatting {

// The POSIX locale of the user's dates and lengths of time: LC_ALL, else LC_TIME, else LANG, by the
// environment's own rules ("C" and "POSIX" count as en_US_POSIX). ICU's default follows LC_MESSAGES
// instead. Thread-safe while nobody changes the environment.
[[nodiscard]] std::string userTimeLocale();

using core::userMessageLocales;
using core::withoutCLocale;

// The date at which a clock in GMT shows the day and time that the user's clock shows at `date`, to
// the whole second. None where the system cannot tell: beyond its years, for no number.
//
// The zone is the system's, `TZ` in any of its forms or else /etc/localtime; a change of the former
// counts from the next call, a change of the latter a second later at most. Thread-safe while
// nobody changes the environment.
[[nodiscard]] std::optional<Date> userWallClock(Date date);

}  // namespace kvl::formatting
