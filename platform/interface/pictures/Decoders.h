// The decoders of one kind of image each. Null when the library finds no image in the bytes.
#pragma once

#include "platform/interface/pictures/Picture.h"

namespace kvl::pictures {

using PicturePtr = std::unique_ptr<Picture>;

// False as well for what is no number.
[[nodiscard]] constexpr bool hasArea(const Size& size) {
  return size.width > 0 && size.height > 0;
}

// PNG, JPEG, GIF, TIFF, BMP and ICO, by gdk-pixbuf.
[[nodiscard]] PicturePtr decodePixbuf(interface::ImageFormat format, Span bytes);
[[nodiscard]] PicturePtr decodeWebP(Span bytes);
[[nodiscard]] PicturePtr decodeSVG(Span bytes);
[[nodiscard]] PicturePtr decodePDF(Span bytes);

}  // namespace kvl::pictures
