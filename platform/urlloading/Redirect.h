// Redirects (RFC 9110, 15.4).
#pragma once

#include <local/platform/URLRequest.h>

#include <optional>

namespace kvl::urlloading {

// Whether both name the same host; the port does not matter.
[[nodiscard]] bool isSameHost(const URL& a, const URL& b) noexcept;

// The request that follows `request` after a response with this status and these fields, or absent
// when the response is not a redirect that may be followed. A redirect never leads from https to
// http, and what the caller set to authenticate itself does not travel to another host.
// @pre `request` has a URL.
[[nodiscard]] std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                                          const HeaderFields& fields);

}  // namespace kvl::urlloading
