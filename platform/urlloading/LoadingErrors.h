// The errors of URL loading: how they are made, and which one a failed transfer is.
#pragma once

#include "platform/urlloading/TLSConnection.h"

#include <local/platform/Error.h>

#include <curl/curl.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace kvl::urlloading {

// The error `code` of NSURLErrorDomain with its description, the URL's text, and the text of the
// library below when there is any.
[[nodiscard]] Error makeURLError(std::int64_t code, std::string_view urlText,
                                 std::string_view debugText = {});

// The same with a description of its own.
[[nodiscard]] Error makeDescribedURLError(std::int64_t code, std::string_view description,
                                          std::string_view urlText,
                                          std::string_view debugText = {});

// A request that cannot be sent as it stands: EINVAL in NSPOSIXErrorDomain.
[[nodiscard]] Error makeInvalidRequestError(std::string_view description, std::string_view urlText);

// The error `number` of errno.
[[nodiscard]] Error makeSystemError(int number, std::string_view urlText);

// What is known of a transfer that failed.
struct FailureFacts {
  CURLcode code = CURLE_OK;
  // The TLS connection that it used last; absent without one.
  std::optional<TLSFacts> tls;
  // Whether the session object is closing, so that its delegate has nothing left to judge by.
  bool closing = false;
};

// The code in NSURLErrorDomain. libcurl's code alone does not tell: under TLS 1.3 a client
// certificate is refused after the handshake, and a forged signature looks like a lost handshake.
// What the connection itself recorded comes first.
[[nodiscard]] std::int64_t classify(const FailureFacts& facts) noexcept;

}  // namespace kvl::urlloading
