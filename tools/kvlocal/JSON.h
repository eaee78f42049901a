// JSON text (RFC 8259) of the framework's values.
#pragma once

#include <local/platform/Value.h>

#include <string>
#include <string_view>

namespace kvlocal {

// Compact text, in one line and in valid UTF-8. Dates become texts in UTC, data base64 texts and
// reals that JSON cannot hold null. What controls terminals or ends lines is escaped.
[[nodiscard]] std::string jsonText(const kvl::Value& value);

[[nodiscard]] std::string base64(std::string_view bytes);

}  // namespace kvlocal
