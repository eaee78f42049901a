// What an image file is, told by its first bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kvl::interface {

using Span = std::span<const std::uint8_t>;

enum class ImageFormat : std::uint32_t {
  kUnknown,
  kPNG,
  kJPEG,
  kGIF,
  kTIFF,
  kWebP,
  kBMP,
  kICO,
  kSVG,
  kPDF
};

// Told by the first KiB alone. Markup, in UTF-8 or UTF-16, and what gzip has packed count as SVG
// until a decoder has seen them.
[[nodiscard]] ImageFormat imageFormatOf(Span bytes);
// For the log.
[[nodiscard]] std::string_view nameOf(ImageFormat format);

}  // namespace kvl::interface
