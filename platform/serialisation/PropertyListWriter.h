// Documents written as binary property lists, version 1.0.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <optional>

namespace kvl {

// Whether a binary property list can hold the value, whatever its kind at the top: everything but
// null and objects, at any level, with strings and keys in UTF-8, and arrays and dictionaries no
// more than 512 deep. Numbers and dates that are infinite or not a number are allowed: the format
// holds the 64 bits of a double, whatever they stand for.
[[nodiscard]] bool isValidForBinaryPropertyList(const Value& value);

// The value as a binary property list. Equal strings, numbers and dates are written once. Without
// it, the error of `NSCocoaErrorDomain` is `NSPropertyListWriteInvalidError`, and its debug
// description says what the format cannot hold. Takes time and memory in proportion to the value.
[[nodiscard]] std::optional<Data> binaryPropertyListFromValue(const Value& value,
                                                              std::optional<Error>* error);

}  // namespace kvl
