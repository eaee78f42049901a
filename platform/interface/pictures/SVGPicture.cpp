#include "platform/interface/pictures/Decoders.h"
#include "platform/interface/pictures/Memory.h"
#include "platform/interface/pictures/Pixels.h"

#include <librsvg/rsvg.h>

#include <utility>

namespace kvl::pictures {
namespace {

using HandlePtr = ObjectPtr<RsvgHandle>;

constexpr double kPixelsPerInch = 96;  // of CSS
constexpr Size kSizeOfNone{300, 150};  // of CSS as well

Size statedSize(RsvgHandle* handle) {
  Size size;
  if (rsvg_handle_get_intrinsic_size_in_pixels(handle, &size.width, &size.height)) return size;
  gboolean hasViewBox = FALSE;
  RsvgRectangle viewBox{};
  rsvg_handle_get_intrinsic_dimensions(handle, nullptr, nullptr, nullptr, nullptr, &hasViewBox,
                                       &viewBox);
  return hasViewBox ? Size{viewBox.width, viewBox.height} : kSizeOfNone;
}

void noteRenderingFailure(const FailureReason& reason) {
  if (reason.get() != nullptr) noteLackOfMemoryIn(reason.get()->message);
}

class SVGPicture final : public Picture {
 public:
  SVGPicture(HandlePtr handle, Size size, std::size_t length)
      : handle_(std::move(handle)), size_(size), length_(length) {}

  [[nodiscard]] Size size() const override { return size_; }
  // Elements and their styles take many times the memory of their text.
  [[nodiscard]] std::size_t cost() const override { return length_ * 16; }
  [[nodiscard]] bool draw(const Target& target) override {
    return drawByCairo(target, size_, [this](cairo_t* context) {
      const RsvgRectangle page{0, 0, size_.width, size_.height};
      FailureReason reason;
      if (rsvg_handle_render_document(handle_.get(), context, &page, reason.slot())) return true;
      noteRenderingFailure(reason);
      return false;
    });
  }

 private:
  HandlePtr handle_;
  Size size_;
  std::size_t length_;
};

}  // namespace

// Without a base address, the handle reads no other files.
PicturePtr decodeSVG(Span bytes) {
  FailureReason reason;
  HandlePtr handle(rsvg_handle_new_from_data(bytes.data(), bytes.size(), reason.slot()));
  if (!handle) {
    noteRenderingFailure(reason);
    return nullptr;
  }
  rsvg_handle_set_dpi(handle.get(), kPixelsPerInch);
  const auto size = statedSize(handle.get());
  if (!hasArea(size)) return nullptr;
  return std::make_unique<SVGPicture>(std::move(handle), size, bytes.size());
}

}  // namespace kvl::pictures
