// Dates and lengths of time by ICU, see Texts.h.
#pragma once

#include "platform/formatting/LocalisedTime.h"

#include <local/platform/Date.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kvl::formatting {

// Formatters are kept between calls, a few locales' worth. Thread-safe: calls at one time use
// formatters of their own, and the lock is not held while formatting.
[[nodiscard]] std::optional<std::string> icuDate(Date wallClock, DateStyle style,
                                                 const std::string& locale);
[[nodiscard]] std::optional<std::string> icuDuration(std::int64_t seconds,
                                                     const std::string& locale);

}  // namespace kvl::formatting
