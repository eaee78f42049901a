// The errors of URL loading.
#pragma once

#include <local/platform/Error.h>

#include <cstdint>
#include <string_view>

namespace kvl::urlloading {

// The error `code` of NSURLErrorDomain with its description, the URL's text, and the text of the
// library below when there is any.
[[nodiscard]] Error makeURLError(std::int64_t code, std::string_view urlText,
                                 std::string_view debugText = {});

// A request that cannot be sent as it stands: EINVAL in NSPOSIXErrorDomain.
[[nodiscard]] Error makeInvalidRequestError(std::string_view description, std::string_view urlText);

// The error `number` of errno.
[[nodiscard]] Error makeSystemError(int number, std::string_view urlText);

}  // namespace kvl::urlloading
