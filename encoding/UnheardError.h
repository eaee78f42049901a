// What stands in for a completion handler that the caller did not give.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Log.h>

#include <optional>

namespace kvl::encoding {

// Writes the error to the log.
inline constexpr auto kLogUnheardError = [](const auto& /*result*/, const auto& /*response*/,
                                            const std::optional<Error>& error) {
  if (error) log("request error: %@", error);
};

}  // namespace kvl::encoding
