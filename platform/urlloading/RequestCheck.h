// What a request must satisfy before anything of it reaches the wire.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/URLRequest.h>
#include <local/platform/URLSession.h>

#include <memory>
#include <optional>
#include <string_view>

namespace kvl::urlloading {

// A request on its way, from the task to the last transfer. Shared, and changed by nobody.
using RequestRef = std::shared_ptr<const URLRequest>;

// `request` with the fields of `additional` that it does not set itself: the same one when there
// are none.
[[nodiscard]] RequestRef withAdditionalHeaders(RequestRef request, const HeaderFields& additional);

// Why the request cannot be sent, or absent when it can.
[[nodiscard]] std::optional<Error> requestFault(const URLRequest& request,
                                                const URLSessionConfiguration& configuration);

// Whether `text` is a token (RFC 9110, 5.6.2).
[[nodiscard]] bool isToken(std::string_view text) noexcept;

// Whether the URL is absolute and of a scheme that is loaded: http or https.
[[nodiscard]] bool isLoadable(const URL& url) noexcept;
// Without one, libcurl would take the beginning of the path for the host.
[[nodiscard]] bool namesHost(const URL& url) noexcept;
[[nodiscard]] bool isSecure(const URL& url) noexcept;
// Whether both name the same host; the port does not matter.
[[nodiscard]] bool isSameHost(const URL& a, const URL& b) noexcept;

}  // namespace kvl::urlloading
