#include "platform/interface/ImageEntryPoint.h"
#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/Picture.h"

#include <local/platform/Export.h>
#include <local/platform/Mutex.h>

#include <bit>
#include <cstring>
#include <utility>

struct KVLImagePicture {
  kvl::images::PicturePtr picture;
  kvl::Mutex drawing;
};

namespace kvl::images {
namespace {

KVLImagePicture* decodePicture(const std::uint8_t* bytes, std::size_t size,
                               KVLImageDescription* description) {
  try {
    auto picture = decode({bytes, size});
    if (!picture) return nullptr;
    *description = {picture->size().width, picture->size().height, picture->maximumPixels()};
    return new KVLImagePicture{std::move(picture), {}};
  } catch (...) {
    return nullptr;
  }
}

// From cairo's numbers of 32 bits, alpha first, to bytes in the order of the contract.
void reorder(std::uint8_t* pixels, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i, pixels += 4) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, pixels, sizeof pixel);
    const std::uint32_t ordered = std::rotl(pixel, 8);
    for (std::size_t byte = 0; byte < 4; ++byte) {
      pixels[byte] = static_cast<std::uint8_t>(ordered >> (24 - 8 * byte));
    }
  }
}

bool drawScaled(KVLImagePicture& picture, cairo_t* context, double width, double height) {
  MutexLock lock(picture.drawing);
  const auto size = picture.picture->size();
  cairo_scale(context, width / size.width, height / size.height);
  return picture.picture->draw(context) && cairo_status(context) == CAIRO_STATUS_SUCCESS;
}

bool drawPicture(KVLImagePicture* picture, std::uint32_t width, std::uint32_t height,
                 std::uint8_t* pixels) {
  try {
    const SurfacePtr surface(
        cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_ARGB32, static_cast<int>(width),
                                            static_cast<int>(height), static_cast<int>(width * 4)));
    const ContextPtr context(cairo_create(surface.get()));
    if (!drawScaled(*picture, context.get(), width, height)) return false;
    cairo_surface_flush(surface.get());
    reorder(pixels, std::size_t{width} * height);
    return true;
  } catch (...) {
    return false;
  }
}

void releasePicture(KVLImagePicture* picture) {
  delete picture;
}

constexpr KVLImageFunctions kFunctions{decodePicture, drawPicture, releasePicture};

}  // namespace
}  // namespace kvl::images

extern "C" KVL_EXPORT const KVLImageFunctions* kvlImageFunctions(std::uint32_t version) {
  return version == kvl::interface::kImageModuleVersion ? &kvl::images::kFunctions : nullptr;
}
