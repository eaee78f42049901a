// Lengths of time in words.
#pragma once

#include <cstdint>
#include <string>

namespace kvl::formatting {

// The BCP 47 / POSIX locale of the user's time texts: LC_ALL, else LC_TIME, else LANG, by the
// environment's own rules ("C" and "POSIX" count as en_US_POSIX).
[[nodiscard]] std::string userTimeLocale();

// Hours, minutes and seconds spelled out in `locale`, zero parts dropped, "0 seconds" for zero;
// one sign in front of a negative length. Thread-safe.
[[nodiscard]] std::string spelledOutDuration(std::int64_t seconds, const std::string& locale);

}  // namespace kvl::formatting
