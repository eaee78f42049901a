#include "platform/interface/pictures/Pixels.h"

#include "platform/interface/pictures/Memory.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace kvl::pictures {
namespace {

constexpr bool kLowestFirst = std::endian::native == std::endian::little;

// Of the two bytes at 0 and 16, each times `alpha` out of 255, to the nearest.
constexpr std::uint32_t timesAlpha(std::uint32_t pair, std::uint32_t alpha) {
  const std::uint32_t product = pair * alpha + 0x0080'0080;
  return ((product + (product >> 8 & 0x00FF'00FF)) >> 8) & 0x00FF'00FF;
}

constexpr std::uint32_t premultiplied(std::uint32_t pixel) {
  const auto alphaShift = kLowestFirst ? 24 : 0;
  const auto alpha = pixel >> alphaShift & 255;
  // The alpha itself is multiplied as if it were opaque.
  const auto opaque = pixel | std::uint32_t{255} << alphaShift;
  return timesAlpha(opaque & 0x00FF'00FF, alpha) | timesAlpha(opaque >> 8 & 0x00FF'00FF, alpha)
                                                       << 8;
}

constexpr std::uint32_t reordered(std::uint32_t pixel) {
  if (!kLowestFirst) return std::rotl(pixel, 8);
  return (pixel & 0xFF00'FF00) | (pixel >> 16 & 255) | (pixel & 255) << 16;
}

template <class Change>
void changeEach(std::span<std::uint8_t> pixels, Change change) {
  for (std::size_t i = 0; i + 4 <= pixels.size(); i += 4) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, pixels.data() + i, sizeof pixel);
    pixel = change(pixel);
    std::memcpy(pixels.data() + i, &pixel, sizeof pixel);
  }
}

}  // namespace

void premultiply(std::span<std::uint8_t> pixels) {
  changeEach(pixels, premultiplied);
}

void reorder(std::span<std::uint8_t> pixels) {
  changeEach(pixels, reordered);
}

bool drawByCairo(const Target& target, const Size& size,
                 const std::function<bool(cairo_t*)>& draw) {
  forgetLackOfMemory();
  const SurfacePtr surface(cairo_image_surface_create_for_data(
      target.pixels.data(), CAIRO_FORMAT_ARGB32, static_cast<int>(target.width),
      static_cast<int>(target.height), static_cast<int>(target.width * 4)));
  const ContextPtr context(cairo_create(surface.get()));
  cairo_scale(context.get(), target.width / size.width, target.height / size.height);
  const bool begun = cairo_status(context.get()) == CAIRO_STATUS_SUCCESS;
  const bool drawn = begun && draw(context.get());
  const auto status = cairo_status(context.get());
  if (status == CAIRO_STATUS_NO_MEMORY) noteLackOfMemory();
  if (!drawn || status != CAIRO_STATUS_SUCCESS) return false;
  cairo_surface_flush(surface.get());
  reorder(target.pixels);
  return true;
}

}  // namespace kvl::pictures
