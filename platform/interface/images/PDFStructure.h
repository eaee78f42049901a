// What a PDF says about the bitmaps in it.
#pragma once

#include "platform/interface/images/Bytes.h"

namespace kvl::images {

// Whether the file goes to its end and none of the bitmaps and patterns that it states is too large
// to draw.
[[nodiscard]] bool isModestPDF(Span bytes);

}  // namespace kvl::images
