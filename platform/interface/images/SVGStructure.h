// What an SVG would cost to draw.
#pragma once

#include "platform/interface/images/Bytes.h"

#include <optional>

namespace kvl::images {

// How many surfaces as large as the drawing may be in use at once; none when the document is not
// whole, not SVG, or one that is not drawn at all.
[[nodiscard]] std::optional<std::size_t> layersOfSVG(Span bytes);

}  // namespace kvl::images
