// The pixels of a target, in their order and multiplied by their alpha.
#pragma once

#include "platform/interface/pictures/GLibPointers.h"
#include "platform/interface/pictures/Picture.h"

#include <cstdint>
#include <functional>
#include <span>

namespace kvl::pictures {

// Red, green, blue, alpha: multiplies the colours by the alpha.
void premultiply(std::span<std::uint8_t> pixels);

// From cairo's numbers of 32 bits, alpha highest, to the order of targets.
void reorder(std::span<std::uint8_t> pixels);

// Lets `draw` draw something of `size` onto the target, scaled to it. False when that failed.
[[nodiscard]] bool drawByCairo(const Target& target, const Size& size,
                               const std::function<bool(cairo_t*)>& draw);

}  // namespace kvl::pictures
