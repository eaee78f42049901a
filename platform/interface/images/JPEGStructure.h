// The segments of a JPEG.
#pragma once

#include "platform/interface/images/Bytes.h"

namespace kvl::images {

// Whether the file goes to its end and its picture may be decoded.
[[nodiscard]] bool isWholeJPEG(Span bytes);

}  // namespace kvl::images
