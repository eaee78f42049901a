// Menus of any descriptions, well made or not, for property tests and fuzzers.
#pragma once

#include <local/platform/SystemVersion.h>
#include <local/platform/Value.h>

#include <cstdint>
#include <span>
#include <string>

namespace kvltest {

// A list of descriptions made from bytes: the keys and words that count, often in the wrong place.
// The same bytes always make the same list. Missing bytes count as zero.
[[nodiscard]] kvl::Value madeDescriptions(std::span<const std::uint8_t> bytes);

// Builds a menu of the descriptions, brings some of its icons and mirrors it onto segments. Returns
// what does not hold of the menu or of the log, or nothing.
[[nodiscard]] std::string faultOfMenu(const kvl::Value& descriptions, kvl::SystemVersion version);

}  // namespace kvltest
