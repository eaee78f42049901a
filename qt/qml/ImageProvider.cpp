#include "qt/qml/ImageProvider.h"

#include <local/platform/Image.h>
#include <local/platform/Translation.h>
#include <local/qt/Conversions.h>

#include <QImage>
#include <QQmlEngine>
#include <QQuickImageResponse>
#include <QQuickTextureFactory>
#include <QRegularExpression>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

constexpr auto kName = "kvlocal";

class Response;

// How whoever fetches an image finds the response, which the engine may have deleted.
class ResponsePlace {
 public:
  explicit ResponsePlace(Response& response) : response_(&response) {}

  void leave() {
    const MutexLock lock(mutex_);
    response_ = nullptr;
  }
  // Any thread. The first call counts.
  void fill(const QImage& image, const QString& fault = {});

 private:
  Mutex mutex_;
  Response* response_ KVL_GUARDED_BY(mutex_);
};

class Response final : public QQuickImageResponse {
 public:
  ~Response() override { place_->leave(); }
  Response() = default;
  Response(const Response&) = delete;
  Response& operator=(const Response&) = delete;

  [[nodiscard]] const std::shared_ptr<ResponsePlace>& place() const { return place_; }

  [[nodiscard]] QQuickTextureFactory* textureFactory() const override {
    return QQuickTextureFactory::textureFactoryForImage(image_);
  }
  [[nodiscard]] QString errorString() const override { return fault_; }
  void cancel() override { place_->fill({}, qString(translated("Cancelled"))); }

  // On the thread of this object: the engine listens only once the request has returned there.
  void finish(const QImage& image, const QString& fault) {
    image_ = image;
    fault_ = fault;
    Q_EMIT finished();
  }

 private:
  const std::shared_ptr<ResponsePlace> place_ = std::make_shared<ResponsePlace>(*this);
  QImage image_;
  QString fault_;
};

// Posted while it is sure to be there; what is posted goes with it.
void ResponsePlace::fill(const QImage& image, const QString& fault) {
  const MutexLock lock(mutex_);
  auto* response = std::exchange(response_, nullptr);
  if (response == nullptr) return;
  QMetaObject::invokeMethod(
      response, [response, image, fault] { response->finish(image, fault); }, Qt::QueuedConnection);
}

// Says that there is no image when it goes before one came: with its source, say.
class Waiting {
 public:
  explicit Waiting(std::shared_ptr<ResponsePlace> place) : place_(std::move(place)) {}
  ~Waiting() { place_->fill({}, qString(translated("There is no image."))); }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  void take(const QImage& image) const {
    if (!image.isNull()) place_->fill(image);
  }

 private:
  const std::shared_ptr<ResponsePlace> place_;
};

using ImageRef = std::shared_ptr<Image>;  // in an image provider of Qt's, "Image" is a kind of them

void draw(const ImageRef& image, const std::shared_ptr<const Waiting>& waiting) {
  // Whoever draws it does not keep it.
  Image::rasterise(
      image, 1, [waiting, kept = image](const Bitmap& bitmap) { waiting->take(qImage(bitmap)); });
}

// An item may want a width or a height only.
int sideOf(QSize wanted) {
  return wanted.isEmpty() ? std::max({wanted.width(), wanted.height(), 0})
                          : std::min(wanted.width(), wanted.height());
}

}  // namespace

ImageAddress::ImageAddress(const QString& identifier) : path(identifier) {
  static const QRegularExpression pattern(QStringLiteral(R"(^(.*)\?([0-9]{1,5})$)"));
  const auto match = pattern.match(identifier);
  if (!match.hasMatch()) return;
  path = match.captured(1);
  side = match.captured(2).toInt();
}

ImageProvider& ImageProvider::of(QQmlEngine& engine) {
  const QString name = QString::fromLatin1(kName);
  auto* provider = dynamic_cast<ImageProvider*>(engine.imageProvider(name));
  if (provider == nullptr) {
    provider = new ImageProvider;
    engine.addImageProvider(name, provider);
  }
  return *provider;
}

void ImageProvider::addSource(const std::shared_ptr<KVLSession>& session,
                              const std::shared_ptr<ImageSource>& images) {
  const MutexLock lock(mutex_);
  std::erase_if(sources_, [](const Source& one) { return one.images.expired(); });
  sources_.push_back({session, images});
}

std::shared_ptr<ImageSource> ImageProvider::source() {
  const MutexLock lock(mutex_);
  for (const Source& one : sources_) {
    const auto session = one.session.lock();
    auto images = one.images.lock();
    if (images && session && !session->isEnded()) return images;
  }
  return nullptr;
}

QQuickImageResponse* ImageProvider::requestImageResponse(const QString& identifier,
                                                         const QSize& wanted) {
  auto* response = new Response;
  const auto waiting = std::make_shared<const Waiting>(response->place());
  const auto from = source();
  if (!from) return response;
  const ImageAddress address(identifier);
  const double side = address.side > 0 ? address.side : sideOf(wanted);
  from->imageWithRelativePath(KVLEncoding::RelativePath(utf8(QLatin1Char('/') + address.path)),
                              {side, side}, [waiting](const ImageRef& image) {
                                if (image) draw(image, waiting);
                              });
  return response;
}

}  // namespace kvl::qt
