// What a request must satisfy before anything of it reaches the wire.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>

#include <optional>

namespace kvl::urlloading {

// `request` with the fields of `additional` that it does not set itself.
[[nodiscard]] URLRequest withAdditionalHeaders(URLRequest request, const HeaderFields& additional);

// Why the request cannot be sent, or absent when it can.
[[nodiscard]] std::optional<Error> requestFault(const URLRequest& request);

// Whether the URL is absolute and of a scheme that is loaded: http or https.
[[nodiscard]] bool isLoadable(const URL& url) noexcept;
[[nodiscard]] bool isSecure(const URL& url) noexcept;

}  // namespace kvl::urlloading
