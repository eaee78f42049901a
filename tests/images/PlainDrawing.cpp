#include "tests/images/PlainDrawing.h"

#include <cairo.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <librsvg/rsvg.h>
#include <poppler.h>
#include <webp/decode.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace kvltest {
namespace {

using Span = std::span<const std::uint8_t>;

template <auto kRelease>
struct Release {
  template <class T>
  void operator()(T* object) const {
    kRelease(object);
  }
};
template <class T>
using ObjectPtr = std::unique_ptr<T, Release<g_object_unref>>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, Release<cairo_surface_destroy>>;
using ContextPtr = std::unique_ptr<cairo_t, Release<cairo_destroy>>;

// Cairo's pixels are numbers, alpha first.
void orderBytes(std::vector<std::uint8_t>& pixels) {
  for (std::size_t i = 0; i + 4 <= pixels.size(); i += 4) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, &pixels[i], sizeof pixel);
    pixel = std::rotl(pixel, 8);
    for (std::size_t byte = 0; byte < 4; ++byte) {
      pixels[i + byte] = static_cast<std::uint8_t>(pixel >> (24 - 8 * byte));
    }
  }
}

// What `paint` leaves on a transparent ground.
template <class Paint>
std::vector<std::uint8_t> painted(std::uint32_t width, std::uint32_t height, const Paint& paint) {
  std::vector<std::uint8_t> pixels(std::size_t{width} * height * 4);
  const SurfacePtr surface(cairo_image_surface_create_for_data(
      pixels.data(), CAIRO_FORMAT_ARGB32, static_cast<int>(width), static_cast<int>(height),
      static_cast<int>(width * 4)));
  const ContextPtr context(cairo_create(surface.get()));
  if (!paint(context.get()) || cairo_status(context.get()) != CAIRO_STATUS_SUCCESS) return {};
  cairo_surface_flush(surface.get());
  orderBytes(pixels);
  return pixels;
}

class PlainSVG final : public PlainPicture {
 public:
  explicit PlainSVG(ObjectPtr<RsvgHandle> handle) : handle_(std::move(handle)) {
    rsvg_handle_set_dpi(handle_.get(), 96);
    if (rsvg_handle_get_intrinsic_size_in_pixels(handle_.get(), &size_.width, &size_.height)) {
      return;
    }
    gboolean hasBox = FALSE;
    RsvgRectangle box{};
    rsvg_handle_get_intrinsic_dimensions(handle_.get(), nullptr, nullptr, nullptr, nullptr, &hasBox,
                                         &box);
    size_ = hasBox ? kvl::Size{box.width, box.height} : kvl::Size{300, 150};
  }
  [[nodiscard]] kvl::Size size() const override { return size_; }
  [[nodiscard]] std::vector<std::uint8_t> draw(std::uint32_t width,
                                               std::uint32_t height) const override {
    return painted(width, height, [&](cairo_t* context) {
      cairo_scale(context, width / size_.width, height / size_.height);
      const RsvgRectangle page{0, 0, size_.width, size_.height};
      return rsvg_handle_render_document(handle_.get(), context, &page, nullptr) != FALSE;
    });
  }

 private:
  const ObjectPtr<RsvgHandle> handle_;
  kvl::Size size_;
};

class PlainPDF final : public PlainPicture {
 public:
  PlainPDF(ObjectPtr<PopplerDocument> document, ObjectPtr<PopplerPage> page)
      : document_(std::move(document)), page_(std::move(page)) {
    poppler_page_get_size(page_.get(), &size_.width, &size_.height);
  }
  [[nodiscard]] kvl::Size size() const override { return size_; }
  [[nodiscard]] std::vector<std::uint8_t> draw(std::uint32_t width,
                                               std::uint32_t height) const override {
    return painted(width, height, [&](cairo_t* context) {
      cairo_scale(context, width / size_.width, height / size_.height);
      poppler_page_render(page_.get(), context);
      return true;
    });
  }

 private:
  const ObjectPtr<PopplerDocument> document_;
  const ObjectPtr<PopplerPage> page_;
  kvl::Size size_;
};

std::uint8_t multiplied(std::uint32_t colour, std::uint32_t alpha) {
  return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
}

std::vector<std::uint8_t> premultiplied(const GdkPixbuf* pixbuf) {
  const auto width = static_cast<std::size_t>(gdk_pixbuf_get_width(pixbuf));
  const auto height = static_cast<std::size_t>(gdk_pixbuf_get_height(pixbuf));
  const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf));
  const std::size_t channels = gdk_pixbuf_get_has_alpha(pixbuf) ? 4 : 3;
  std::vector<std::uint8_t> pixels(width * height * 4);
  auto to = pixels.begin();
  for (std::size_t y = 0; y < height; ++y) {
    const guchar* from = gdk_pixbuf_read_pixels(pixbuf) + y * stride;
    for (std::size_t x = 0; x < width; ++x, from += channels) {
      const std::uint8_t alpha = channels == 4 ? from[3] : 255;
      for (std::size_t i = 0; i < 3; ++i) *to++ = multiplied(from[i], alpha);
      *to++ = alpha;
    }
  }
  return pixels;
}

class PlainBitmap final : public PlainPicture {
 public:
  explicit PlainBitmap(ObjectPtr<GdkPixbuf> pixbuf) : pixbuf_(std::move(pixbuf)) {}
  [[nodiscard]] kvl::Size size() const override {
    return {static_cast<double>(gdk_pixbuf_get_width(pixbuf_.get())),
            static_cast<double>(gdk_pixbuf_get_height(pixbuf_.get()))};
  }
  [[nodiscard]] std::vector<std::uint8_t> draw(std::uint32_t width,
                                               std::uint32_t height) const override {
    const ObjectPtr<GdkPixbuf> scaled(gdk_pixbuf_scale_simple(
        pixbuf_.get(), static_cast<int>(width), static_cast<int>(height), GDK_INTERP_BILINEAR));
    return scaled ? premultiplied(scaled.get()) : std::vector<std::uint8_t>();
  }

 private:
  const ObjectPtr<GdkPixbuf> pixbuf_;
};

std::unique_ptr<PlainPicture> plainSVG(Span bytes) {
  ObjectPtr<RsvgHandle> handle(rsvg_handle_new_from_data(bytes.data(), bytes.size(), nullptr));
  return handle ? std::make_unique<PlainSVG>(std::move(handle)) : nullptr;
}

std::unique_ptr<PlainPicture> plainPDF(Span bytes) {
  GBytes* const shared = g_bytes_new_static(bytes.data(), bytes.size());
  ObjectPtr<PopplerDocument> document(poppler_document_new_from_bytes(shared, nullptr, nullptr));
  g_bytes_unref(shared);
  if (!document || poppler_document_get_n_pages(document.get()) < 1) return nullptr;
  ObjectPtr<PopplerPage> page(poppler_document_get_page(document.get(), 0));
  return page ? std::make_unique<PlainPDF>(std::move(document), std::move(page)) : nullptr;
}

void releaseWebP(guchar* pixels, gpointer /*data*/) {
  WebPFree(pixels);
}

std::unique_ptr<PlainPicture> plainWebP(Span bytes) {
  int width = 0;
  int height = 0;
  std::uint8_t* const pixels = WebPDecodeRGBA(bytes.data(), bytes.size(), &width, &height);
  if (pixels == nullptr) return nullptr;
  return std::make_unique<PlainBitmap>(ObjectPtr<GdkPixbuf>(gdk_pixbuf_new_from_data(
      pixels, GDK_COLORSPACE_RGB, TRUE, 8, width, height, width * 4, releaseWebP, nullptr)));
}

std::unique_ptr<PlainPicture> plainBitmap(Span bytes) {
  const ObjectPtr<GdkPixbufLoader> loader(gdk_pixbuf_loader_new());
  const bool written =
      gdk_pixbuf_loader_write(loader.get(), bytes.data(), bytes.size(), nullptr) != FALSE;
  const bool closed = gdk_pixbuf_loader_close(loader.get(), nullptr) != FALSE;
  auto* const pixbuf = written && closed ? gdk_pixbuf_loader_get_pixbuf(loader.get()) : nullptr;
  if (pixbuf == nullptr) return nullptr;
  return std::make_unique<PlainBitmap>(
      ObjectPtr<GdkPixbuf>(gdk_pixbuf_apply_embedded_orientation(pixbuf)));
}

}  // namespace

std::unique_ptr<PlainPicture> plainPicture(std::span<const std::uint8_t> bytes) {
  const std::string_view start(reinterpret_cast<const char*>(bytes.data()),
                               std::min<std::size_t>(bytes.size(), 1024));
  if (start.find("%PDF-") != std::string_view::npos) return plainPDF(bytes);
  if (start.starts_with("RIFF")) return plainWebP(bytes);
  if (start.find('<') != std::string_view::npos && start.find('\0') == std::string_view::npos)
    return plainSVG(bytes);
  if (start.starts_with("\x1f\x8b")) return plainSVG(bytes);
  return plainBitmap(bytes);
}

}  // namespace kvltest
