// What a file is, told by its first bytes. Only what is listed here reaches a decoder.
#pragma once

#include "platform/interface/images/Bytes.h"

namespace kvl::images {

enum class Format { kUnknown, kPNG, kJPEG, kGIF, kTIFF, kWebP, kSVG, kPDF };

// Any document of markup counts as SVG until its decoder has seen the root element.
[[nodiscard]] Format formatOf(Span bytes);

}  // namespace kvl::images
