// Packed streams, unpacked piece by piece.
#pragma once

#include <functional>
#include <string_view>

namespace kvl::images {

// Calls `take` with each piece of what `packed` (zlib's format, as far as it goes) unpacks to; a
// piece begins with the end of the one before, so that nothing short is cut in two. Ends early when
// `take` returns false, and then returns false too.
[[nodiscard]] bool inflate(std::string_view packed,
                           const std::function<bool(std::string_view piece)>& take);

}  // namespace kvl::images
