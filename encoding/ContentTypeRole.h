// The role that a response's "Content-Type" gives to an image.
#pragma once

#include <local/platform/URLRequest.h>

#include <map>
#include <optional>
#include <string_view>

namespace kvl::encoding {

using ContentTypeParameters = std::map<std::string_view, std::string_view>;

// The parameters behind the media type, as views of `contentType`.
//
// This is no reader of RFC 9110: a name runs to "=", a value to ",", and the comma begins the name
// that follows it. White space is skipped before each of them and kept behind. Of equal names the
// last counts. Without a media type there are no parameters.
[[nodiscard]] ContentTypeParameters contentTypeParameters(std::string_view contentType);

// Whether the parameter "role" contains "template".
[[nodiscard]] bool hasTemplateRole(std::string_view contentType);

// An HTTP response's "Content-Type". Systems before 10.15 know it by exactly that name, later ones
// in any case.
[[nodiscard]] std::optional<std::string_view> contentTypeOf(const URLResponse& response);

}  // namespace kvl::encoding
