// The end of a certificate's validity, as its values tell it.
#pragma once

#include <local/platform/Date.h>
#include <local/platform/Value.h>

#include <optional>

namespace kvl::notary {

// Reads the not-after entry of a certificate's values. A number counts seconds since 2001-01-01; a
// value that is neither date nor number is logged.
[[nodiscard]] std::optional<Date> notValidAfterFromValues(const std::optional<Dictionary>& values);

}  // namespace kvl::notary
