// PNG, JPEG, GIF and TIFF. gdk-pixbuf takes what ends too early for whole, so each format's
// structure is looked at first; the decoder then gets only what its first picture needs.
#include "platform/interface/images/GIFStructure.h"
#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/JPEGStructure.h"
#include "platform/interface/images/PNGStructure.h"
#include "platform/interface/images/SurfacePicture.h"
#include "platform/interface/images/TIFFStructure.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <array>
#include <functional>

namespace kvl::images {
namespace {

using PixbufPtr = ObjectPtr<GdkPixbuf>;
using Write = std::function<void(Span part)>;

// A second look at the size, from the decoder itself, before it takes memory for the pixels.
void stopUnlessDecodable(GdkPixbufLoader* loader, int width, int height, gpointer /*data*/) {
  if (width <= 0 || height <= 0 ||
      !isDecodable(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height))) {
    gdk_pixbuf_loader_set_size(loader, 0, 0);
  }
}

// The picture that the loader called `type` makes of what `feed` writes.
PixbufPtr load(const char* type, const std::function<void(const Write&)>& feed) {
  const ObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new_with_type(type, nullptr));
  if (!loader) return nullptr;
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(stopUnlessDecodable), nullptr);
  bool good = true;
  feed([&](Span part) {
    good = good && gdk_pixbuf_loader_write(loader.get(), part.data(), part.size(), nullptr);
  });
  good = gdk_pixbuf_loader_close(loader.get(), nullptr) && good;
  auto* const pixbuf = good ? gdk_pixbuf_loader_get_pixbuf(loader.get()) : nullptr;
  return PixbufPtr(pixbuf ? gdk_pixbuf_apply_embedded_orientation(pixbuf) : nullptr);
}

// Cairo's pixels are numbers of 32 bits.
std::uint32_t premultiplied(const guchar* pixel, bool hasAlpha) {
  const std::uint32_t alpha = hasAlpha ? pixel[3] : 255;
  const auto times = [alpha](std::uint32_t color) { return (color * alpha + 127) / 255; };
  return alpha << 24 | times(pixel[0]) << 16 | times(pixel[1]) << 8 | times(pixel[2]);
}

void copyPixels(const GdkPixbuf* pixbuf, cairo_surface_t* surface) {
  const bool hasAlpha = gdk_pixbuf_get_has_alpha(pixbuf) != FALSE;
  const auto width = gdk_pixbuf_get_width(pixbuf);
  for (int y = 0; y < gdk_pixbuf_get_height(pixbuf); ++y) {
    const guchar* from = gdk_pixbuf_read_pixels(pixbuf) +
                         std::size_t(y) * std::size_t(gdk_pixbuf_get_rowstride(pixbuf));
    auto* to = reinterpret_cast<std::uint32_t*>(
        cairo_image_surface_get_data(surface) +
        std::size_t(y) * std::size_t(cairo_image_surface_get_stride(surface)));
    for (int x = 0; x < width; ++x, from += hasAlpha ? 4 : 3) *to++ = premultiplied(from, hasAlpha);
  }
}

PicturePtr makePicture(const PixbufPtr& pixbuf) {
  if (!pixbuf) return nullptr;
  const auto width = static_cast<std::uint32_t>(gdk_pixbuf_get_width(pixbuf.get()));
  const auto height = static_cast<std::uint32_t>(gdk_pixbuf_get_height(pixbuf.get()));
  auto surface = makeSurface(width, height);
  if (!surface) return nullptr;
  copyPixels(pixbuf.get(), surface.get());
  cairo_surface_mark_dirty(surface.get());
  return makeSurfacePicture(std::move(surface));
}

}  // namespace

PicturePtr decodePNG(Span bytes) {
  if (!walkPNG(bytes, [](Span) {})) return nullptr;
  return makePicture(
      load("png", [bytes](const Write& write) { static_cast<void>(walkPNG(bytes, write)); }));
}

PicturePtr decodeJPEG(Span bytes) {
  if (!isWholeJPEG(bytes)) return nullptr;
  return makePicture(load("jpeg", [bytes](const Write& write) { write(bytes); }));
}

PicturePtr decodeGIF(Span bytes) {
  const auto end = firstPictureOfGIF(bytes);
  if (!end) return nullptr;
  return makePicture(load("gif", [bytes, end](const Write& write) {
    constexpr std::array<std::uint8_t, 1> trailer{';'};
    write(bytes.first(*end));
    write(trailer);
  }));
}

PicturePtr decodeTIFF(Span bytes) {
  if (!isWholeTIFF(bytes)) return nullptr;
  return makePicture(load("tiff", [bytes](const Write& write) { write(bytes); }));
}

}  // namespace kvl::images
