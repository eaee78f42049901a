// The first directory of a TIFF.
#pragma once

#include "platform/interface/images/Bytes.h"

namespace kvl::images {

// Whether all that the first picture consists of is there, and it may be decoded.
[[nodiscard]] bool isWholeTIFF(Span bytes);

}  // namespace kvl::images
