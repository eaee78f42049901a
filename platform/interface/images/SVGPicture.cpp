#include "platform/interface/images/GLibPointers.h"
#include "platform/interface/images/Picture.h"
#include "platform/interface/images/SVGStructure.h"

#include <librsvg/rsvg.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace kvl::images {
namespace {

using HandlePtr = ObjectPtr<RsvgHandle>;

constexpr double kPixelsPerInch = 96;  // of CSS
constexpr Size kSizeOfNone{300, 150};  // of CSS as well

Size sizeOf(RsvgHandle* handle) {
  Size size;
  if (rsvg_handle_get_intrinsic_size_in_pixels(handle, &size.width, &size.height)) return size;
  gboolean hasViewBox = FALSE;
  RsvgRectangle viewBox{};
  rsvg_handle_get_intrinsic_dimensions(handle, nullptr, nullptr, nullptr, nullptr, &hasViewBox,
                                       &viewBox);
  return hasViewBox ? Size{viewBox.width, viewBox.height} : kSizeOfNone;
}

class SVGPicture final : public Picture {
 public:
  SVGPicture(HandlePtr handle, Size size, std::size_t layers)
      : handle_(std::move(handle)), size_(size), layers_(layers) {}

  [[nodiscard]] Size size() const override { return size_; }

  [[nodiscard]] std::uint64_t maximumPixels() const override {
    return std::min(kMaximumBitmapPixels, kLayerBytes / 4 / layers_);
  }

  [[nodiscard]] bool draw(cairo_t* context) override {
    const RsvgRectangle page{0, 0, size_.width, size_.height};
    return rsvg_handle_render_document(handle_.get(), context, &page, nullptr) != FALSE;
  }

 private:
  HandlePtr handle_;
  Size size_;
  std::size_t layers_;
};

}  // namespace

// Without a base address, the handle reads no other files.
PicturePtr decodeSVG(Span bytes) {
  const auto layers = layersOfSVG(bytes);
  if (!layers) return nullptr;
  HandlePtr handle(rsvg_handle_new_from_data(bytes.data(), bytes.size(), nullptr));
  if (!handle) return nullptr;
  rsvg_handle_set_dpi(handle.get(), kPixelsPerInch);
  const auto size = sizeOf(handle.get());
  if (!isDrawable(size.width) || !isDrawable(size.height)) return nullptr;
  return std::make_unique<SVGPicture>(std::move(handle), size, *layers);
}

}  // namespace kvl::images
