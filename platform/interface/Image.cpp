#include "platform/core/NoDestructor.h"
#include "platform/interface/client/ImageDecoding.h"

#include <local/platform/Atomic.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Image.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <optional>
#include <utility>

namespace kvl {
namespace {

using interface::ImageDecoding;
using interface::ImageSource;
using interface::PixelSize;

// Where images of other classes are drawn.
const std::shared_ptr<DispatchQueue>& workers() {
  static NoDestructor<std::shared_ptr<DispatchQueue>> queue(
      DispatchQueue::concurrent("local.images"));
  return *queue;
}

// `count` pixels to the nearest whole number, at least one.
std::uint32_t wholePixels(double count) {
  return static_cast<std::uint32_t>(std::clamp(std::round(count), 1.0, double{kMaximumBitmapSide}));
}

// The size in pixels, brought down to what a bitmap may have; aspect kept as far as one pixel
// allows.
PixelSize fittingPixels(double width, double height) {
  constexpr auto kMost = static_cast<double>(kMaximumBitmapPixels);
  if (width * height > kMost) {
    const double factor = std::sqrt(kMost / width / height);
    width = std::floor(width * factor);
    height = std::floor(height * factor);
  }
  const auto pixels = wholePixels(width);
  const auto highest = static_cast<std::uint32_t>(
      std::clamp<std::uint64_t>(kMaximumBitmapPixels / pixels, 1, kMaximumBitmapSide));
  return {pixels, std::min(wholePixels(height), highest)};
}

bool isLength(double length) {
  return std::isfinite(length) && length > 0;
}

// Data that no image is made of is in here for the log.
std::shared_ptr<ImageSource> sourceOf(const Data& data) {
  return std::make_shared<ImageSource>(data, interface::imageFormatOf(data.bytes()));
}

class DecodedImage final : public Image {
 public:
  DecodedImage(Data data, std::shared_ptr<ImageSource> source, Size naturalSize)
      : data_(std::move(data)),
        source_(std::move(source)),
        naturalSize_(naturalSize),
        size_(naturalSize) {}
  ~DecodedImage() override { source_->letGo(); }
  DecodedImage(const DecodedImage&) = delete;
  DecodedImage& operator=(const DecodedImage&) = delete;

  [[nodiscard]] Data data() const override { return data_; }
  [[nodiscard]] Size naturalSize() const override { return naturalSize_; }
  [[nodiscard]] Size size() const override { return size_.get(); }
  void setSize(Size size) override { size_.set(size); }
  [[nodiscard]] bool isTemplate() const override { return isTemplate_; }
  void setTemplate(bool isTemplate) override { isTemplate_ = isTemplate; }

  [[nodiscard]] Bitmap rasterised(double scale) const override {
    const auto pixels = pixelsAt(scale);
    return pixels ? ImageDecoding::process().draw(source_, *pixels) : Bitmap();
  }
  // Does not keep this image.
  void rasterise(double scale, BitmapHandler handler) const {
    if (const auto pixels = pixelsAt(scale)) {
      return ImageDecoding::process().draw(source_, *pixels, std::move(handler));
    }
    workers()->async([handler = std::move(handler)] { handler({}); });
  }

 private:
  [[nodiscard]] std::optional<PixelSize> pixelsAt(double scale) const {
    const auto size = size_.get();
    const double width = size.width * scale;
    const double height = size.height * scale;
    if (!isLength(scale) || !isLength(width) || !isLength(height)) return std::nullopt;
    return fittingPixels(width, height);
  }

  const Data data_;
  const std::shared_ptr<ImageSource> source_;
  const Size naturalSize_;
  Atomic<Size> size_;
  std::atomic<bool> isTemplate_ = false;
};

}  // namespace

Image::~Image() = default;

Bitmap Image::rasterised(double /*scale*/) const {
  return {};
}

std::shared_ptr<Image> Image::imageWithData(const Data& data) {
  auto source = sourceOf(data);
  const auto size = ImageDecoding::process().open(source);
  return size ? std::make_shared<DecodedImage>(data, std::move(source), *size) : nullptr;
}

void Image::imageWithData(const Data& data, Completion completion) {
  auto source = sourceOf(data);
  ImageDecoding::process().open(
      source, [data, source, completion = std::move(completion)](std::optional<Size> size) {
        completion(size ? std::make_shared<DecodedImage>(data, source, *size) : nullptr);
      });
}

void Image::rasterise(const std::shared_ptr<Image>& image, double scale, BitmapHandler handler) {
  if (const auto* const decoded = dynamic_cast<const DecodedImage*>(image.get())) {
    return decoded->rasterise(scale, std::move(handler));
  }
  workers()->async([image, scale, handler = std::move(handler)] {
    handler(image ? image->rasterised(scale) : Bitmap());
  });
}

}  // namespace kvl
