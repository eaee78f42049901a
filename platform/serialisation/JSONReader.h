// Documents read from JSON.
#pragma once

#include <local/platform/Error.h>
#include <local/platform/Value.h>

#include <cstddef>
#include <limits>
#include <optional>

namespace kvl {

// What a text may have of containers within one another, and of bytes.
inline constexpr std::size_t kMaximumJSONDepth = 512;
inline constexpr std::size_t kMaximumJSONSize = std::size_t{256} << 20;

// The document that `text` holds by RFC 8259: any value may stand at top level, and `null` gives
// the null value. Usable on any thread.
//
// - Text is UTF-8; a byte-order mark at its start is skipped.
// - A number without fraction and exponent is an integer if 64 bits hold it, `-0` being 0; every
//   other number is a real, rounded to the nearest. One that is too large for a real is an error.
// - Of equal keys the last one's value counts, in the first one's place.
// - Half of a surrogate pair is an error, as is any other malformed escape.
//
// The values refer to the bytes of `text` and keep them alive, so that reading copies only strings
// that have escapes.
//
// `maximumCells` is how many values it may hold, each key, element and container counting as one:
// one that is given by two bytes takes sixteen of memory and more. A text with more of them is
// given up before any is made.
//
// Without a document, the error of `NSCocoaErrorDomain` is `NSPropertyListReadCorruptError`, and
// its `NSDebugDescriptionErrorKey` says what is wrong, and at which byte if that is known.
[[nodiscard]] std::optional<Value> valueFromJSON(
    const Data& text, std::optional<Error>* error,
    std::size_t maximumCells = std::numeric_limits<std::size_t>::max());

}  // namespace kvl
