#include "platform/interface/images/SurfacePicture.h"

#include <utility>

namespace kvl::images {
namespace {

class SurfacePicture final : public Picture {
 public:
  explicit SurfacePicture(SurfacePtr surface) : surface_(std::move(surface)) {}

  [[nodiscard]] Size size() const override {
    return {static_cast<double>(cairo_image_surface_get_width(surface_.get())),
            static_cast<double>(cairo_image_surface_get_height(surface_.get()))};
  }

  [[nodiscard]] bool draw(cairo_t* context) override {
    cairo_set_source_surface(context, surface_.get(), 0, 0);
    // Without padding, the edges would blend with the nothing around them.
    cairo_pattern_set_extend(cairo_get_source(context), CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(cairo_get_source(context), CAIRO_FILTER_GOOD);
    cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
    cairo_paint(context);
    return true;
  }

 private:
  SurfacePtr surface_;
};

}  // namespace

SurfacePtr makeSurface(std::uint32_t width, std::uint32_t height) {
  SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(width),
                                                static_cast<int>(height)));
  const bool made = cairo_surface_status(surface.get()) == CAIRO_STATUS_SUCCESS;
  return made ? std::move(surface) : nullptr;
}

PicturePtr makeSurfacePicture(SurfacePtr surface) {
  return std::make_unique<SurfacePicture>(std::move(surface));
}

}  // namespace kvl::images
