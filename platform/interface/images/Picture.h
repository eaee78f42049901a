// What the decoders make.
#pragma once

#include "platform/interface/images/Bytes.h"
#include "platform/interface/images/Limits.h"

#include <cairo.h>

#include <memory>

namespace kvl::images {

class Picture {
 public:
  virtual ~Picture() = default;
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  // In points.
  [[nodiscard]] virtual Size size() const = 0;
  // The most pixels that it may be drawn with.
  [[nodiscard]] virtual std::uint64_t maximumPixels() const { return kMaximumBitmapPixels; }
  // Draws itself at its size, in points. One call at a time. False when that failed.
  [[nodiscard]] virtual bool draw(cairo_t* context) = 0;

 protected:
  Picture() = default;
};

using PicturePtr = std::unique_ptr<Picture>;

// The picture in `bytes`, or null. Drawings refer to the bytes for as long as they live.
[[nodiscard]] PicturePtr decode(Span bytes);

// The decoders of one format each. Null when the bytes hold no whole picture within the limits.
[[nodiscard]] PicturePtr decodePNG(Span bytes);
[[nodiscard]] PicturePtr decodeJPEG(Span bytes);
[[nodiscard]] PicturePtr decodeGIF(Span bytes);
[[nodiscard]] PicturePtr decodeTIFF(Span bytes);
[[nodiscard]] PicturePtr decodeWebP(Span bytes);
[[nodiscard]] PicturePtr decodeSVG(Span bytes);
[[nodiscard]] PicturePtr decodePDF(Span bytes);

}  // namespace kvl::images
