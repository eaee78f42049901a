// Pictures drawn by librsvg, poppler, libwebp and gdk-pixbuf themselves, in this process and
// without limits, as rsvg-convert, pdftocairo -cropbox -transp and gdk-pixbuf's thumbnailer do.
#pragma once

#include <local/platform/Geometry.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace kvltest {

class PlainPicture {
 public:
  virtual ~PlainPicture() = default;
  // In pixels, or in points of a drawing.
  [[nodiscard]] virtual kvl::Size size() const = 0;
  // Rows without gaps: red, green, blue, alpha, the colours multiplied by the alpha. Empty when the
  // library does not draw it.
  [[nodiscard]] virtual std::vector<std::uint8_t> draw(std::uint32_t width,
                                                       std::uint32_t height) const = 0;
};

// Null when the library finds no picture in the bytes, which must outlive it.
[[nodiscard]] std::unique_ptr<PlainPicture> plainPicture(std::span<const std::uint8_t> bytes);

}  // namespace kvltest
