#include "platform/interface/client/ImageDecoding.h"

#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Timers.h"
#include "platform/interface/client/DecoderPool.h"
#include "platform/interface/client/Refusal.h"

#include <local/platform/Log.h>
#include <local/platform/Mutex.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <new>
#include <string>
#include <utility>

namespace kvl::interface {

class ImageSource::State {
 public:
  State(Data itsBytes, ImageFormat itsFormat) : bytes(std::move(itsBytes)), format(itsFormat) {}

  const Data bytes;
  const ImageFormat format;
  const std::uint64_t number = nextNumber();
  const core::HomeProcess home;
  std::atomic<bool> isLetGo = false;
  std::atomic<bool> isSlow = false;
  std::atomic<std::size_t> place = 0;  // where it was last
  // A drawing of as many met a limit by itself.
  std::atomic<std::uint64_t> tooManyPixels = std::numeric_limits<std::uint64_t>::max();
  Mutex mutex;
  std::weak_ptr<DecoderPool> pool KVL_GUARDED_BY(mutex);  // the one that it was given to last
  // The size at which it was thought to be drawn first, and what was drawn of it already.
  PixelSize expected KVL_GUARDED_BY(mutex);
  Bitmap ready KVL_GUARDED_BY(mutex);
  bool wasDrawn KVL_GUARDED_BY(mutex) = false;

 private:
  static std::uint64_t nextNumber() {
    static std::atomic<std::uint64_t> last = 0;
    return ++last;
  }
};

namespace {

using State = ImageSource::State;
using End = Decoder::End;

// A drawing of more comes with fewer when the memory does not suffice.
constexpr std::uint64_t kFewPixels = std::uint64_t{1} << 20;
constexpr int kMostHalvings = 2;

std::uint64_t pixelCount(PixelSize size) {
  return std::uint64_t{size.width} * size.height;
}

void logRefusal(const State& source, std::string_view reason) {
  const auto name = source.format == ImageFormat::kUnknown ? "data" : nameOf(source.format);
  log(LogCategory::images, LogLevel::warning, "image refused: %@ of %@ bytes: %@", name,
      source.bytes.size(), reason);
}

// The size at which the next image is drawn: most likely that of the last one. Icons that are drawn
// when they are opened cost one exchange instead of two, so it is guessed as long as that comes
// true.
class NextSize {
 public:
  [[nodiscard]] PixelSize last() const {
    const MutexLock lock(mutex_);
    return last_;
  }
  [[nodiscard]] std::optional<PixelSize> guess() const {
    const MutexLock lock(mutex_);
    if (trust_ < kEnough || last_ == PixelSize{}) return std::nullopt;
    return last_;
  }
  // What was drawn first of an image, and what had been expected.
  void note(PixelSize drawn, PixelSize expected) {
    const MutexLock lock(mutex_);
    if (expected != PixelSize{}) {
      trust_ = std::clamp(trust_ + (drawn == expected ? 1 : -1), 0, kMost);
    }
    last_ = byteCountOf(drawn) <= kInlineBytes ? drawn : PixelSize{};
  }
  // Keeps what was drawn of the image until it is asked for, or many others have come.
  void keep(const std::shared_ptr<State>& source, Bitmap bitmap) {
    setReady(*source, std::move(bitmap));
    std::shared_ptr<State> oldest;
    {
      const MutexLock lock(mutex_);
      ready_.push_back(source);
      if (ready_.size() <= kMostReady) return;
      oldest = ready_.front().lock();
      ready_.pop_front();
    }
    if (oldest) setReady(*oldest, {});
  }

 private:
  static void setReady(State& source, Bitmap bitmap) {
    const MutexLock lock(source.mutex);
    source.ready = std::move(bitmap);
  }

  static constexpr int kEnough = 2;
  static constexpr int kMost = 3;
  static constexpr std::size_t kMostReady = 64;
  mutable Mutex mutex_;
  PixelSize last_ KVL_GUARDED_BY(mutex_);
  int trust_ KVL_GUARDED_BY(mutex_) = kEnough;
  std::deque<std::weak_ptr<State>> ready_ KVL_GUARDED_BY(mutex_);  // the last ones last
};

}  // namespace

// The opening of an image or, with a size, its drawing.
class ImageJob final : public DecoderJob {
 public:
  ImageJob(std::shared_ptr<State> source, std::optional<PixelSize> drawing,
           const Decoder::Limits& limits, std::shared_ptr<NextSize> nextSize)
      : source_(std::move(source)),
        drawing_(drawing),
        limits_(limits),
        nextSize_(std::move(nextSize)) {}

  [[nodiscard]] bool drive(DecoderPlace& place) override {
    source_->place = place.number();
    if (!drawing_) {
      if (const auto isDone = openAndDraw(place)) return *isDone;
    }
    auto size = drawing_;
    auto left = limits_;
    for (int halvings = 0;; ++halvings) {
      auto exchange = ask(place, size, left);
      if (!exchange) return true;
      if (exchange->end == End::kPutOff) return false;
      const bool mayComeSmaller = size && pixelCount(*size) > kFewPixels &&
                                  halvings < kMostHalvings && exchange->used < left.processorTime;
      if (!metMemory(*exchange) || !mayComeSmaller) return take(std::move(*exchange), size), true;
      size = PixelSize{(size->width + 1) / 2, (size->height + 1) / 2};
      left.processorTime -= std::chrono::ceil<std::chrono::milliseconds>(exchange->used);
    }
  }
  void deliver() override {
    if (onSize) onSize(naturalSize);
    if (onBitmap) onBitmap(std::move(bitmap));
  }
  void noteSlow() override { source_->isSlow = true; }
  [[nodiscard]] bool isSlow() const override { return source_->isSlow; }
  [[nodiscard]] std::size_t favouredPlace() const override { return source_->place; }
  [[nodiscard]] const void* owner() const override { return source_.get(); }

  ImageDecoding::SizeHandler onSize;
  ImageDecoding::BitmapHandler onBitmap;
  std::optional<Size> naturalSize;
  Bitmap bitmap;

 private:
  [[nodiscard]] std::optional<Decoder::Exchange> ask(DecoderPlace& place,
                                                     std::optional<PixelSize> size,
                                                     const Decoder::Limits& limits) const {
    ImageRequest request;
    request.image = source_->number;
    request.format = source_->format;
    request.drawing = size;
    return place.exchange(request, source_->bytes.bytes(), limits);
  }

  // As `drive`. None when it is to be opened only: there is no guess, or it could not be drawn.
  [[nodiscard]] std::optional<bool> openAndDraw(DecoderPlace& place) {
    {
      const MutexLock lock(source_->mutex);
      source_->expected = nextSize_->last();
    }
    const auto size = nextSize_->guess();
    if (!size || source_->bytes.size() > kInlineBytes) return std::nullopt;
    auto exchange = ask(place, size, limits_);
    if (!exchange) return true;
    if (exchange->end == End::kPutOff) return false;
    if (mayOpenAlone(*exchange)) return std::nullopt;
    take(std::move(*exchange), size);
    if (!bitmap.empty()) nextSize_->keep(source_, std::exchange(bitmap, {}));
    return true;
  }

  // What fails may have been the drawing.
  static bool mayOpenAlone(const Decoder::Exchange& exchange) {
    if (exchange.end == End::kLetGo || exchange.end == End::kNotSent) return false;
    const auto outcome = exchange.answer.outcome;
    return exchange.end != End::kAnswered || outcome == Outcome::kNotDrawn ||
           outcome == Outcome::kMemory;
  }

  void take(Decoder::Exchange exchange, std::optional<PixelSize> size) {
    if (exchange.end == End::kLetGo) return;
    if (exchange.end != End::kAnswered || exchange.answer.outcome != Outcome::kDone) {
      return refuse(exchange);
    }
    naturalSize = exchange.answer.naturalSize;
    if (size) bitmap = {size->width, size->height, std::move(exchange.pixels)};
  }

  void refuse(const Decoder::Exchange& exchange) {
    if (metLimit(exchange) && drawing_) source_->tooManyPixels = pixelCount(*drawing_);
    const auto longest =
        std::max<std::uint64_t>(source_->bytes.size(), drawing_ ? pixelCount(*drawing_) * 4 : 0);
    logRefusal(*source_, refusalReason(exchange, limits_, longest));
  }

  const std::shared_ptr<State> source_;
  const std::optional<PixelSize> drawing_;
  const Decoder::Limits limits_;
  const std::shared_ptr<NextSize> nextSize_;
};

ImageSource::ImageSource(Data bytes, ImageFormat format)
    : state_(std::make_shared<State>(std::move(bytes), format)) {}

ImageSource::~ImageSource() = default;

void ImageSource::letGo() noexcept {
  if (!state_->home.isThisProcess()) return;
  state_->isLetGo = true;
  std::shared_ptr<DecoderPool> pool;
  {
    const MutexLock lock(state_->mutex);
    pool = state_->pool.lock();
  }
  if (pool && pool->isAtHome()) pool->letGo(state_.get());
}

class ImageDecoding::Implementation {
 public:
  explicit Implementation(Options options)
      : limits_{options.processorTime, options.wallTime},
        queue_(options.queue ? options.queue : DispatchQueue::concurrent("local.images")),
        pool_(makePool(std::move(options), queue_)) {}

  [[nodiscard]] DecoderPool& pool() const { return *pool_; }

  // Null when there is nothing to ask a decoder, or nobody to ask.
  [[nodiscard]] std::shared_ptr<ImageJob> job(const std::shared_ptr<State>& source,
                                              std::optional<PixelSize> drawing) const {
    if (!mayBegin(*source)) return nullptr;
    if (drawing ? !isDrawable(*source, *drawing) : !isReadable(*source)) return nullptr;
    const MutexLock lock(source->mutex);
    source->pool = pool_;
    return std::make_shared<ImageJob>(source, drawing, limits_, nextSize_);
  }

  // What was drawn when the image was opened. It is not kept for a second time.
  [[nodiscard]] Bitmap takeReady(State& source, PixelSize size) const {
    if (!mayBegin(source)) return {};
    const MutexLock lock(source.mutex);
    if (!std::exchange(source.wasDrawn, true)) nextSize_->note(size, source.expected);
    auto ready = std::exchange(source.ready, {});
    return PixelSize{ready.width, ready.height} == size ? std::move(ready) : Bitmap();
  }

  void post(std::shared_ptr<ImageJob> job, const State& source) const {
    pool_->post(std::move(job));
    if (source.isLetGo) pool_->letGo(&source);  // it may not have found the job
  }

  // For what needs no decoder.
  void deliver(const State& source, DispatchQueue::Block block) const {
    if (!mayBegin(source)) return;
    queue_->async([block = std::move(block)] {
      const core::ThreadWork work;
      block();
    });
  }

 private:
  [[nodiscard]] bool mayBegin(const State& source) const {
    core::prepareForExit();
    return pool_->isAtHome() && !core::isExiting() && !source.isLetGo;
  }

  static bool isReadable(const State& source) {
    if (source.format == ImageFormat::kUnknown || source.bytes.empty()) {
      logRefusal(source, "no known format");
      return false;
    }
    if (source.bytes.size() <= kMaximumImageBytes) return true;
    logRefusal(source, "it is too large");
    return false;
  }

  static bool isDrawable(const State& source, PixelSize size) {
    const auto count = pixelCount(size);
    if (count == 0 || count > kMaximumBitmapPixels) return false;
    if (count < source.tooManyPixels) return true;
    logRefusal(source, "a drawing of as few pixels met a limit before");
    return false;
  }

  static std::shared_ptr<DecoderPool> makePool(Options options,
                                               const std::shared_ptr<DispatchQueue>& queue) {
    if (!options.later) options.later = dispatch::fireAfter;
    return std::make_shared<DecoderPool>(DecoderPool::Options{.places = std::move(options.places),
                                                              .share = options.share,
                                                              .idle = options.idle,
                                                              .retry = options.retry,
                                                              .queue = queue,
                                                              .later = std::move(options.later)});
  }

  const Decoder::Limits limits_;
  const std::shared_ptr<NextSize> nextSize_ = std::make_shared<NextSize>();
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<DecoderPool> pool_;
};

ImageDecoding::ImageDecoding(Options options)
    : implementation_(std::make_shared<Implementation>(std::move(options))) {}

// In a child of fork(2) the processes are somebody else's.
ImageDecoding::~ImageDecoding() {
  auto& pool = implementation_->pool();
  if (!pool.isAtHome()) {
    static_cast<void>(new (std::nothrow) std::shared_ptr(implementation_));
    return;
  }
  pool.stop();
  pool.endProcesses();
}

ImageDecoding& ImageDecoding::process() {
  static NoDestructor<ImageDecoding> decoding{Options{}};
  static const bool stopsAtExit =
      (core::addExitStep([] { decoding->implementation_->pool().stop(); }), true);
  static_cast<void>(stopsAtExit);
  return *decoding;
}

void ImageDecoding::prepare() {
  core::prepareForExit();
  auto& pool = implementation_->pool();
  if (pool.isAtHome() && !core::isExiting()) pool.prepare();
}

std::optional<Size> ImageDecoding::open(const std::shared_ptr<ImageSource>& source) {
  const auto job = implementation_->job(source->state_, std::nullopt);
  if (!job || !implementation_->pool().run(*job)) return std::nullopt;
  return job->naturalSize;
}

Bitmap ImageDecoding::draw(const std::shared_ptr<ImageSource>& source, PixelSize size) {
  auto ready = implementation_->takeReady(*source->state_, size);
  if (!ready.empty()) return ready;
  const auto job = implementation_->job(source->state_, size);
  if (!job || !implementation_->pool().run(*job)) return {};
  return std::move(job->bitmap);
}

void ImageDecoding::open(std::shared_ptr<ImageSource> source, SizeHandler handler) {
  auto job = implementation_->job(source->state_, std::nullopt);
  if (!job)
    return implementation_->deliver(*source->state_,
                                    [handler = std::move(handler)] { handler(std::nullopt); });
  job->onSize = std::move(handler);
  implementation_->post(std::move(job), *source->state_);
}

void ImageDecoding::draw(std::shared_ptr<ImageSource> source, PixelSize size,
                         BitmapHandler handler) {
  auto ready = implementation_->takeReady(*source->state_, size);
  if (!ready.empty()) {
    return implementation_->deliver(
        *source->state_,
        [ready = std::move(ready), handler = std::move(handler)] { handler(ready); });
  }
  auto job = implementation_->job(source->state_, size);
  if (!job)
    return implementation_->deliver(*source->state_,
                                    [handler = std::move(handler)] { handler({}); });
  job->onBitmap = std::move(handler);
  implementation_->post(std::move(job), *source->state_);
}

}  // namespace kvl::interface
