/// @file
/// Dates as the service writes them (RFC 3339).
#pragma once

#include <local/platform/Date.h>
#include <local/platform/DateFormatter.h>
#include <local/platform/Export.h>

#include <optional>
#include <string_view>

namespace KVLExtensions {

/// `rfc3339nano` The shared formatter with nine fraction digits, "2024-05-01T12:34:56.123456789Z".
/// It writes in UTC. Any thread.
[[nodiscard]] KVL_EXPORT const kvl::DateFormatter& rfc3339nano();

/// `rfc3339` The shared formatter with whole seconds, "2024-05-01T12:34:56Z". It writes in UTC, a
/// fraction cut off. Any thread.
[[nodiscard]] KVL_EXPORT const kvl::DateFormatter& rfc3339();

/// `dateFromRFC3339:` The date that `rfc3339nano` or else `rfc3339` reads; none when neither does.
[[nodiscard]] KVL_EXPORT std::optional<kvl::Date> dateFromRFC3339(std::string_view text);

}  // namespace KVLExtensions
