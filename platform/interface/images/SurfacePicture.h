// Pictures that are pixels.
#pragma once

#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/Picture.h"

namespace kvl::images {

// A surface of transparent pixels (`CAIRO_FORMAT_ARGB32`), or null without memory for it.
// @pre isDecodable(width, height)
[[nodiscard]] SurfacePtr makeSurface(std::uint32_t width, std::uint32_t height);

// One point for each pixel; resampled when it is drawn larger or smaller.
[[nodiscard]] PicturePtr makeSurfacePicture(SurfacePtr surface);

}  // namespace kvl::images
