/// @file
/// Images fitted into a square.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Geometry.h>
#include <local/platform/Image.h>

namespace KVLExtensions {

/// `scaleImage:` Sets the size at which `image` is shown, from the present one: aspect kept, it
/// fits a square whose side is the smaller side of `size`, and one of its sides is that long.
/// Smaller images are enlarged. 200 x 100 scaled to 32 x 64 is 32 x 16.
///
/// Both sides of `size` should be above 0; that is not checked, nor whether the image's own size is
/// empty, whose result is no number. Any thread, but reading and setting the size are two steps.
KVL_EXPORT void scaleImage(kvl::Image& image, kvl::Size size);

}  // namespace KVLExtensions
