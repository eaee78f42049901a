// The body of a request, as it came.
#pragma once

#include <optional>
#include <string>

namespace httplib {
class ContentReader;
struct Request;
}  // namespace httplib

namespace devservice {

// Whether a body follows the head. Without either field that says so, none does (RFC 9112, 6.3).
[[nodiscard]] bool hasBody(const httplib::Request& request);

// All bytes of the body, whatever their type; absent when the client left before the end. For
// routes that are declared with a content reader.
[[nodiscard]] std::optional<std::string> readBody(const httplib::Request& request,
                                                  const httplib::ContentReader& reader);

}  // namespace devservice
