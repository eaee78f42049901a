// What the decoders make of a file, inside the decoder's process.
#pragma once

#include "platform/interface/protocol/ImageFormat.h"

#include <local/platform/Geometry.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace kvl::pictures {

using interface::Span;

// Where a picture is drawn: rows without gaps, 4 bytes a pixel, all 0 before.
struct Target {
  std::span<std::uint8_t> pixels;
  std::uint32_t width;
  std::uint32_t height;
};

class Picture {
 public:
  Picture() = default;
  virtual ~Picture() = default;
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  [[nodiscard]] virtual Size size() const = 0;  // in points
  // Fills the target: red, green, blue, alpha, premultiplied, sRGB. False when that failed. One
  // call at a time.
  [[nodiscard]] virtual bool draw(const Target& target) = 0;
  [[nodiscard]] virtual std::size_t cost() const = 0;  // bytes that keeping it takes, about
};

// Null when there is none in the bytes, which outlive the picture. A bitmap above 1 Mi pixels is
// read scaled down to that at first (and so seen to be readable), and again when more is drawn.
[[nodiscard]] std::unique_ptr<Picture> decode(interface::ImageFormat format, Span bytes);

// Loads all that would be loaded or read later, fonts apart, and draws a little of everything.
// Starts no thread.
void loadDecoders();
// Finds the fonts, which takes long where nothing has cached them.
void warmText();

// Whether the last `decode` or `draw` failed for want of memory.
[[nodiscard]] bool lacksMemory() noexcept;

}  // namespace kvl::pictures
