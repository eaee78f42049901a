// PNG, JPEG, GIF, TIFF, BMP and ICO.
#include "platform/interface/pictures/BitmapPicture.h"
#include "platform/interface/pictures/Memory.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <string_view>

namespace kvl::pictures {
namespace {

using interface::ImageFormat;

// As gdk-pixbuf names them.
const char* typeOf(ImageFormat format) {
  switch (format) {
    case ImageFormat::kPNG:
      return "png";
    case ImageFormat::kJPEG:
      return "jpeg";
    case ImageFormat::kGIF:
      return "gif";
    case ImageFormat::kTIFF:
      return "tiff";
    case ImageFormat::kBMP:
      return "bmp";
    default:
      return "ico";
  }
}

// A JPEG is read at a half, a quarter or an eighth with less memory and time.
PixelSize reduced(PixelSize whole, PixelSize least) {
  PixelSize size = whole;
  for (std::uint32_t divisor = 2; divisor <= 8; divisor *= 2) {
    const PixelSize next{(whole.width + divisor - 1) / divisor,
                         (whole.height + divisor - 1) / divisor};
    if (next.width < least.width || next.height < least.height) break;
    size = next;
  }
  return size;
}

struct Reading {
  ImageFormat format;
  const Wanted& wanted;
  PixelSize whole;

  // What the loader is to make. Others than JPEGs are read whole, and to be drawn are scaled once
  // only.
  [[nodiscard]] PixelSize loaded() const {
    const auto least = wanted.of(whole);
    if (!wanted.isForDrawing()) return least;
    return format == ImageFormat::kJPEG ? reduced(whole, least) : whole;
  }
};

// Before the loader takes memory for the pixels.
void setSize(GdkPixbufLoader* loader, int width, int height, gpointer data) {
  auto& reading = *static_cast<Reading*>(data);
  if (width > 0 && height > 0) {
    reading.whole = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
  }
  const bool isWanted = reading.whole.width > 0 && isWithinLimits(reading.whole);
  const auto loaded = isWanted ? reading.loaded() : PixelSize{};
  if (loaded == reading.whole && isWanted) return;
  gdk_pixbuf_loader_set_size(loader, static_cast<int>(loaded.width),
                             static_cast<int>(loaded.height));
}

void noteLoadingFailure(const FailureReason& reason) {
  if (g_error_matches(reason.get(), GDK_PIXBUF_ERROR, GDK_PIXBUF_ERROR_INSUFFICIENT_MEMORY)) {
    noteLackOfMemory();
  }
}

// Whether the file says that it was taken with the camera on its side.
bool isTurned(GdkPixbuf* pixbuf) {
  const char* const orientation = gdk_pixbuf_get_option(pixbuf, "orientation");
  return orientation != nullptr &&
         std::string_view("5678").find(*orientation) != std::string_view::npos;
}

ReadBitmap readPixbuf(ImageFormat format, Span bytes, const Wanted& wanted) {
  Reading reading{format, wanted, {}};
  const ObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new_with_type(typeOf(format), nullptr));
  if (!loader) return {};
  g_signal_connect(loader.get(), "size-prepared", G_CALLBACK(setSize), &reading);
  FailureReason writing;
  FailureReason closing;
  const bool written =
      gdk_pixbuf_loader_write(loader.get(), bytes.data(), bytes.size(), writing.slot()) != FALSE;
  const bool closed = gdk_pixbuf_loader_close(loader.get(), closing.slot()) != FALSE;
  noteLoadingFailure(writing);
  noteLoadingFailure(closing);
  auto* const pixbuf = written && closed ? gdk_pixbuf_loader_get_pixbuf(loader.get()) : nullptr;
  if (pixbuf == nullptr) return {nullptr, reading.whole};
  PixbufPtr upright(gdk_pixbuf_apply_embedded_orientation(pixbuf));
  if (!upright) noteLackOfMemory();
  return {std::move(upright), reading.whole, isTurned(pixbuf)};
}

}  // namespace

PicturePtr decodePixbuf(ImageFormat format, Span bytes) {
  return makeBitmapPicture(
      [format, bytes](const Wanted& wanted) { return readPixbuf(format, bytes, wanted); });
}

}  // namespace kvl::pictures
