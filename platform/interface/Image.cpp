#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/interface/ImageModule.h"

#include <local/platform/Atomic.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Image.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>
#include <vector>

namespace kvl {
namespace {

// The libraries that draw have static objects. While the process exits, nothing is decoded or
// drawn, and pictures stay as they are.
struct PictureRelease {
  const KVLImageFunctions* functions;
  void operator()(KVLImagePicture* picture) const {
    const core::LibraryUse use;
    if (use) return functions->release(picture);
    keepForGood(picture);
  }

 private:
  // Where looking for leaks finds them.
  static void keepForGood(KVLImagePicture* picture) {
    static Mutex mutex;
    static NoDestructor<std::vector<KVLImagePicture*>> kept;
    const MutexLock lock(mutex);
    kept->push_back(picture);
  }
};
using PicturePtr = std::unique_ptr<KVLImagePicture, PictureRelease>;

struct PixelSize {
  std::uint32_t width;
  std::uint32_t height;
};

// `count` pixels to the nearest whole number, at least one.
std::uint32_t wholePixels(double count) {
  return static_cast<std::uint32_t>(std::clamp(std::round(count), 1.0, double{kMaximumImageSide}));
}

// The size in pixels, brought down to at most `maximumPixels`; aspect kept as far as one pixel
// allows.
PixelSize fittingPixels(double width, double height, std::uint64_t maximumPixels) {
  const auto limit = static_cast<double>(maximumPixels);
  if (width * height > limit) {
    const double factor = std::sqrt(limit / width / height);
    width = std::floor(width * factor);
    height = std::floor(height * factor);
  }
  const PixelSize pixels{wholePixels(std::min(width, limit)), wholePixels(std::min(height, limit))};
  const auto highest = static_cast<std::uint32_t>(
      std::clamp<std::uint64_t>(maximumPixels / pixels.width, 1, kMaximumImageSide));
  return {pixels.width, std::min(pixels.height, highest)};
}

bool isLength(double length) {
  return std::isfinite(length) && length > 0;
}

class DecodedImage final : public Image {
 public:
  DecodedImage(Data data, PicturePtr picture, const KVLImageDescription& description)
      : data_(std::move(data)),
        picture_(std::move(picture)),
        naturalSize_{description.width, description.height},
        maximumPixels_(std::min(description.maximumPixels, kMaximumBitmapPixels)),
        size_(naturalSize_) {}

  [[nodiscard]] Data data() const override { return data_; }
  [[nodiscard]] Size naturalSize() const override { return naturalSize_; }
  [[nodiscard]] Size size() const override { return size_.get(); }
  void setSize(Size size) override { size_.set(size); }
  [[nodiscard]] bool isTemplate() const override { return isTemplate_; }
  void setTemplate(bool isTemplate) override { isTemplate_ = isTemplate; }

  [[nodiscard]] Bitmap rasterised(double scale) const override {
    const auto size = size_.get();
    const double width = size.width * scale;
    const double height = size.height * scale;
    const core::LibraryUse use;
    if (!use || !isLength(scale) || !isLength(width) || !isLength(height)) return {};
    const auto pixels = fittingPixels(width, height, maximumPixels_);
    Bytes bytes(std::size_t{pixels.width} * pixels.height * 4);
    if (!functions().draw(picture_.get(), pixels.width, pixels.height, bytes.data())) return {};
    return {pixels.width, pixels.height, Data(std::move(bytes))};
  }

 private:
  [[nodiscard]] const KVLImageFunctions& functions() const {
    return *picture_.get_deleter().functions;
  }

  const Data data_;  // the picture refers to it
  const PicturePtr picture_;
  const Size naturalSize_;
  const std::uint64_t maximumPixels_;
  Atomic<Size> size_;
  std::atomic<bool> isTemplate_ = false;
};

}  // namespace

Image::~Image() = default;

Bitmap Image::rasterised(double /*scale*/) const {
  return {};
}

std::shared_ptr<Image> Image::imageWithData(const Data& data) {
  const core::LibraryUse use;
  if (!use || data.empty() || data.size() > kMaximumImageBytes) return nullptr;
  const auto* const functions = interface::imageModule();
  if (functions == nullptr) return nullptr;
  KVLImageDescription description{};
  PicturePtr picture(functions->decode(data.data(), data.size(), &description), {functions});
  if (!picture) return nullptr;
  static const bool prepared = (core::standBeforeStatics(), true);
  static_cast<void>(prepared);
  return std::make_shared<DecodedImage>(data, std::move(picture), description);
}

namespace {

const std::shared_ptr<DispatchQueue>& workers() {
  static NoDestructor<std::shared_ptr<DispatchQueue>> queue(
      DispatchQueue::concurrent("local.images"));
  return *queue;
}

}  // namespace

void Image::imageWithData(const Data& data, Completion completion) {
  workers()->async([data, completion = std::move(completion)] { completion(imageWithData(data)); });
}

void Image::rasterise(const std::shared_ptr<Image>& image, double scale, BitmapHandler handler) {
  if (std::dynamic_pointer_cast<DecodedImage>(image)) {
    return workers()->async([watched = std::weak_ptr(image), scale, handler = std::move(handler)] {
      if (const auto held = watched.lock()) handler(held->rasterised(scale));
    });
  }
  workers()->async(
      [image, scale, handler = std::move(handler)] { handler(image->rasterised(scale)); });
}

}  // namespace kvl
