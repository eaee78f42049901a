#include "platform/interface/pictures/BitmapPicture.h"

#include "platform/interface/pictures/Memory.h"
#include "platform/interface/pictures/Pixels.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kvl::pictures {
namespace {

// What is kept of a bitmap. Enough for anything but large views.
constexpr double kKeptPixels = 1 << 20;

std::uint32_t atLeastOne(double count) {
  return std::max(static_cast<std::uint32_t>(count), 1U);
}

PixelSize sizeOf(const PixbufPtr& pixbuf) {
  return {static_cast<std::uint32_t>(gdk_pixbuf_get_width(pixbuf.get())),
          static_cast<std::uint32_t>(gdk_pixbuf_get_height(pixbuf.get()))};
}

PixelSize turned(PixelSize size) {
  return {size.height, size.width};
}

// Both have their bytes in the same order, so that it is scaled right into the target.
bool drawPixbuf(const PixbufPtr& pixbuf, const Target& target) {
  const auto width = static_cast<int>(target.width);
  const auto height = static_cast<int>(target.height);
  const PixbufPtr drawn(gdk_pixbuf_new_from_data(target.pixels.data(), GDK_COLORSPACE_RGB, TRUE, 8,
                                                 width, height, width * 4, nullptr, nullptr));
  const auto size = sizeOf(pixbuf);
  gdk_pixbuf_scale(pixbuf.get(), drawn.get(), 0, 0, width, height, 0, 0,
                   static_cast<double>(width) / size.width,
                   static_cast<double>(height) / size.height, GDK_INTERP_BILINEAR);
  if (gdk_pixbuf_get_has_alpha(pixbuf.get())) premultiply(target.pixels);
  return true;
}

class BitmapPicture final : public Picture {
 public:
  BitmapPicture(ReadFunction read, ReadBitmap kept)
      : read_(std::move(read)),
        kept_(std::move(kept)),
        whole_(kept_.isTurned ? turned(kept_.whole) : kept_.whole) {}

  [[nodiscard]] Size size() const override {
    return {static_cast<double>(whole_.width), static_cast<double>(whole_.height)};
  }
  [[nodiscard]] std::size_t cost() const override {
    return kept_.pixbuf ? gdk_pixbuf_get_byte_length(kept_.pixbuf.get()) : 0;
  }

  [[nodiscard]] bool draw(const Target& target) override {
    forgetLackOfMemory();
    if (!kept_.pixbuf) return false;
    if (suffices(target)) return drawPixbuf(kept_.pixbuf, target);
    const Wanted wanted({target.width, target.height});
    const auto again = read_(kept_.isTurned ? wanted.turned() : wanted);
    return again.pixbuf && drawPixbuf(again.pixbuf, target);
  }

 private:
  [[nodiscard]] bool suffices(const Target& target) const {
    const auto size = sizeOf(kept_.pixbuf);
    return size == whole_ || (target.width <= size.width && target.height <= size.height);
  }

  ReadFunction read_;
  ReadBitmap kept_;
  PixelSize whole_;
};

}  // namespace

PixelSize Wanted::of(PixelSize whole) const {
  if (drawn_) return {std::min(whole.width, drawn_->width), std::min(whole.height, drawn_->height)};
  const double count = static_cast<double>(whole.width) * whole.height;
  if (count <= kKeptPixels) return whole;
  const double factor = std::sqrt(kKeptPixels / count);
  return {atLeastOne(whole.width * factor), atLeastOne(whole.height * factor)};
}

Wanted Wanted::turned() const {
  return drawn_ ? Wanted(pictures::turned(*drawn_)) : Wanted();
}

bool isWithinLimits(PixelSize whole) {
  return whole.width <= interface::kLongestSide && whole.height <= interface::kLongestSide;
}

PixbufPtr makePixbuf(PixelSize size, bool hasAlpha) {
  PixbufPtr pixbuf(gdk_pixbuf_new(GDK_COLORSPACE_RGB, hasAlpha, 8, static_cast<int>(size.width),
                                  static_cast<int>(size.height)));
  if (!pixbuf) noteLackOfMemory();
  return pixbuf;
}

PicturePtr makeBitmapPicture(ReadFunction read) {
  auto kept = read({});
  const bool isEmpty = kept.whole.width == 0 || kept.whole.height == 0;
  if (isEmpty || (!kept.pixbuf && isWithinLimits(kept.whole))) return nullptr;
  return std::make_unique<BitmapPicture>(std::move(read), std::move(kept));
}

}  // namespace kvl::pictures
