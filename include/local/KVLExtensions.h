/// @file
/// What extends the platform's classes: constants and the status of responses.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/URLRequest.h>

#include <cstdint>
#include <string_view>

/// What extends the platform's classes: the status of responses, dates as text, sizes of images,
/// and the bodies of forms.
namespace KVLExtensions {

/// Domain of the errors of the multipart writer.
inline constexpr std::string_view KVLExtensionsErrorDomain = "korvale.vandrel.local.extensions";
/// Media type of bytes of which nothing is known.
inline constexpr std::string_view KVLExtensionsContentTypeOctetStream = "application/octet-stream";

/// `statusCode` The status code of an HTTP response, -1 of any other. Any thread.
[[nodiscard]] KVL_EXPORT std::int64_t statusCode(const kvl::URLResponse& response) noexcept;

/// `requiresAuthentication` Whether the status code is 401 or 403. Any thread.
[[nodiscard]] KVL_EXPORT bool requiresAuthentication(const kvl::URLResponse& response) noexcept;

}  // namespace KVLExtensions
