// What a picture may be; the public limits are in <local/platform/Image.h>.
#pragma once

#include <local/platform/Image.h>

#include <cstddef>
#include <cstdint>

namespace kvl::images {

// What one decoder may take for the pixels that it works on.
inline constexpr std::uint64_t kWorkingBytes = std::uint64_t{16} << 20;

// JPEG: each pass over the coefficients costs as much as the whole picture, and ten bytes order
// one.
inline constexpr int kMaximumScans = 100;

// SVG: its elements, segments of paths and glyphs take many times the memory of their text.
inline constexpr std::size_t kMaximumSVGBytes = std::size_t{1} << 20;
inline constexpr std::size_t kMaximumSVGElements = 10'000;
inline constexpr std::size_t kMaximumSVGDepth = 256;
// Of one attribute, such as a path, and of all style sheets.
inline constexpr std::size_t kMaximumSVGText = std::size_t{32} << 10;
inline constexpr std::size_t kMaximumSVGGlyphs = std::size_t{4} << 10;
// For the layers that are drawn one inside the other.
inline constexpr std::uint64_t kLayerBytes = std::uint64_t{24} << 20;

// `width` x `height` pixels are a picture that may be decoded.
[[nodiscard]] constexpr bool isDecodable(std::uint64_t width, std::uint64_t height) {
  return width > 0 && height > 0 && width <= kMaximumImageSide && height <= kMaximumImageSide &&
         width * height <= kMaximumImagePixels;
}

// A side of a drawing, in points.
[[nodiscard]] constexpr bool isDrawable(double side) {
  return side > 0 && side <= kMaximumImageSide;
}

}  // namespace kvl::images
