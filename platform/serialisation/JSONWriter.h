// Documents written as JSON.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <optional>

namespace kvl {

// Whether JSON can hold the value: an array or a dictionary, in which every value is a string in
// UTF-8, a finite number, an array, a dictionary or null, nested no deeper than what can be read.
[[nodiscard]] bool isValidJSONObject(const Value& value);

// The value as compact JSON. Without it, the error of `NSCocoaErrorDomain` is
// `NSPropertyListWriteInvalidError`.
[[nodiscard]] std::optional<Data> JSONFromValue(const Value& value, std::optional<Error>* error);

// The same in one pass for a value of which nobody knows whether JSON can hold it: none and no
// error where `isValidJSONObject` is false.
[[nodiscard]] std::optional<Data> JSONIfValid(const Value& value, std::optional<Error>* error);

}  // namespace kvl
