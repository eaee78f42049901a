// When the next notarisation follows.
#pragma once

#include <local/platform/Date.h>

#include <cstdint>
#include <optional>

namespace kvl::session {

// Seconds until the retry after a recoverable error, after any other outcome without a usable
// expiry, and after a forced disconnect.
inline constexpr std::int64_t kRecoverableDelay = 5;
inline constexpr std::int64_t kDefaultDelay = 15;
inline constexpr std::int64_t kReconnectionDelay = 1;

// 80 % of the time from `now` until `expires`, cut to whole seconds; kDefaultDelay when there is
// no expiry or it has passed.
[[nodiscard]] std::int64_t renewalDelay(std::optional<Date> expires, Date now) noexcept;

}  // namespace kvl::session
