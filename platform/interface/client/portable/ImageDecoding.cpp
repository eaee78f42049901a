#include "platform/interface/client/ImageDecoding.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"

#include <local/platform/Log.h>

#include <atomic>
#include <utility>

// There are no images: POSIX knows no way to confine the program that decodes them, and an image
// may come from anybody.
namespace kvl::interface {

class ImageSource::State {
 public:
  const core::HomeProcess home;
  std::atomic<bool> isLetGo = false;
};

// NOLINTNEXTLINE(performance-unnecessary-value-param): whoever decodes keeps the bytes
ImageSource::ImageSource(Data /*bytes*/, ImageFormat /*format*/)
    : state_(std::make_shared<State>()) {}

ImageSource::~ImageSource() = default;

void ImageSource::letGo() noexcept {
  state_->isLetGo = true;
}

class ImageDecoding::Implementation {
 public:
  explicit Implementation(const Options& options)
      : queue_(options.queue ? options.queue : DispatchQueue::concurrent("local.images")) {}

  void note() {
    if (wasNoted_.exchange(true)) return;
    log(LogCategory::images, LogLevel::error,
        "no images: this system has nothing that confines their decoder");
  }

  [[nodiscard]] bool mayDeliver(const ImageSource::State& source) {
    core::prepareForExit();
    if (!source.home.isThisProcess() || core::isExiting() || source.isLetGo) return false;
    note();
    return true;
  }

  template <class Handler, class Absent>
  void deliver(std::shared_ptr<ImageSource::State> source, Handler handler, const Absent& absent) {
    if (!mayDeliver(*source)) return;
    queue_->async([source = std::move(source), handler = std::move(handler), absent] {
      const core::ThreadWork work;
      if (!source->isLetGo) handler(absent);
    });
  }

 private:
  const std::shared_ptr<DispatchQueue> queue_;
  std::atomic<bool> wasNoted_ = false;
};

// NOLINTNEXTLINE(performance-unnecessary-value-param): whoever decodes keeps them
ImageDecoding::ImageDecoding(Options options)
    : implementation_(std::make_shared<Implementation>(options)) {}

ImageDecoding::~ImageDecoding() = default;

ImageDecoding& ImageDecoding::process() {
  static NoDestructor<ImageDecoding> decoding{Options{}};
  return *decoding;
}

void ImageDecoding::prepare() {}

std::optional<Size> ImageDecoding::open(const std::shared_ptr<ImageSource>& source) {
  static_cast<void>(implementation_->mayDeliver(*source->state_));
  return std::nullopt;
}

Bitmap ImageDecoding::draw(const std::shared_ptr<ImageSource>& /*source*/, PixelSize /*size*/) {
  return {};
}

void ImageDecoding::open(std::shared_ptr<ImageSource> source, SizeHandler handler) {
  implementation_->deliver(source->state_, std::move(handler), std::optional<Size>());
}

void ImageDecoding::draw(std::shared_ptr<ImageSource> source, PixelSize /*size*/,
                         BitmapHandler handler) {
  implementation_->deliver(source->state_, std::move(handler), Bitmap());
}

}  // namespace kvl::interface
