// JSON text (RFC 8259) of the framework's values.
#pragma once

#include <local/platform/Value.h>

#include <string>
#include <string_view>

namespace kvlocal {

// Compact text, in one line and in valid UTF-8. Dates become the texts that
// `dateText` makes, data base64 texts and reals that JSON cannot hold null. What ends lines or does
// something to terminals is escaped.
[[nodiscard]] std::string jsonText(const kvl::Value& value);

// RFC 3339, in UTC and whole seconds: "2024-05-01T12:34:56Z".
[[nodiscard]] std::string dateText(kvl::Date date);

[[nodiscard]] std::string base64(std::string_view bytes);

}  // namespace kvlocal
