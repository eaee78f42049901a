// Lengths of time in words.
#pragma once

#include <cstdint>
#include <string>

namespace kvl::formatting {

// Hours, minutes and seconds spelled out in `locale`, zero parts dropped, "0 seconds" for zero;
// one sign in front of a negative length. Thread-safe.
[[nodiscard]] std::string spelledOutDuration(std::int64_t seconds, const std::string& locale);

}  // namespace kvl::formatting
