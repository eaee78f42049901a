// The blocks of a GIF.
#pragma once

#include "platform/interface/images/Bytes.h"

#include <optional>

namespace kvl::images {

// How far the first picture goes, without the file's trailer; none when the file does not go to its
// end or the picture may not be decoded.
[[nodiscard]] std::optional<std::size_t> firstPictureOfGIF(Span bytes);

}  // namespace kvl::images
