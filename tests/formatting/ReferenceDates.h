// RFC 3339 dates read in the slow and obvious way.
#pragma once

#include <local/platform/Date.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace kvltest {

// The double that is nearest to so many seconds and nanoseconds, read from their decimal form.
[[nodiscard]] double nearestDouble(std::int64_t seconds, std::int64_t nanoseconds);

// What `KVLExtensions::dateFromRFC3339` gives.
[[nodiscard]] std::optional<kvl::Date> referenceDate(std::string_view text);

}  // namespace kvltest
