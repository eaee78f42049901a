// The chunks of a PNG.
#pragma once

#include "platform/interface/images/Bytes.h"

#include <functional>

namespace kvl::images {

// Whether the file goes to its end and its picture may be decoded. Calls `essential` with each part
// that the pixels depend on: the others may be as large as they like when decompressed.
[[nodiscard]] bool walkPNG(Span bytes, const std::function<void(Span part)>& essential);

}  // namespace kvl::images
