/// @file
/// Texts in the user's locale.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>
#include <string>

namespace KVLEncoding {

/// `duration:` A whole number of seconds in words, in hours, minutes and seconds of the user's
/// locale (`LC_ALL`, `LC_TIME`, `LANG`): "1 hour, 2 minutes, 5 seconds". Parts that are zero are
/// left out, zero itself is "0 seconds", and a negative length has one sign in front. Any thread.
[[nodiscard]] KVL_EXPORT std::string duration(std::int64_t seconds);

}  // namespace KVLEncoding
