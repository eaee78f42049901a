#include <local/KVLEncodingSession.h>
#include <local/platform/Mutex.h>
#include <local/qt/GuiThread.h>
#include <local/qt/ImageSource.h>

#include <QObject>
#include <QThread>
#include <compare>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

struct ImageKey {
  std::string path;
  double width = 0;
  double height = 0;

  friend auto operator<=>(const ImageKey&, const ImageKey&) = default;
};

using Completions = std::vector<KVLEncodingImageSource::Completion>;

// One of them may destroy the source.
void callWhileThere(const std::weak_ptr<const void>& source, const Completions& completions,
                    const std::shared_ptr<Image>& image) {
  for (const auto& completion : completions) {
    if (source.expired()) return;
    completion(image);
  }
}

}  // namespace

class ImageSource::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(std::shared_ptr<KVLSession> session, std::size_t most)
      : session_(std::move(session)), most_(most) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void request(const KVLEncoding::RelativePath& relativePath, Size size, Completion completion);
  void forget();

 private:
  using Kept = std::list<std::pair<ImageKey, std::shared_ptr<Image>>>;

  // The image if it is kept, which then is the one asked for most recently.
  [[nodiscard]] std::shared_ptr<Image> kept(const ImageKey& key) KVL_REQUIRES(mutex_);
  // Who has been waiting for it.
  Completions arrived(const ImageKey& key, const std::shared_ptr<Image>& image, int generation);
  void keep(const ImageKey& key, const std::shared_ptr<Image>& image) KVL_REQUIRES(mutex_);
  void callHere(const Completion& completion, const std::shared_ptr<Image>& image);

  const std::shared_ptr<KVLSession> session_;
  const std::size_t most_;
  std::unique_ptr<QObject> home_ = std::make_unique<QObject>();  // goes on its thread
  QThread* const thread_ = QThread::currentThread();
  const std::shared_ptr<DispatchQueue> queue_ = queueOf(*home_);
  Mutex mutex_;
  Kept images_ KVL_GUARDED_BY(mutex_);  // the one asked for most recently in front
  std::map<ImageKey, Kept::iterator> places_ KVL_GUARDED_BY(mutex_);
  int generation_ KVL_GUARDED_BY(mutex_) = 0;  // of what may be kept
  // Those who ask after a `forget` do not join a fetch from before it.
  std::map<std::pair<ImageKey, int>, Completions> waiting_ KVL_GUARDED_BY(mutex_);
};

// By the queue, which knows when the application ends.
ImageSource::Implementation::~Implementation() {
  if (QThread::currentThread() == thread_) return;
  queue_->async([home = home_.release()] { delete home; });
}

void ImageSource::Implementation::request(const KVLEncoding::RelativePath& relativePath, Size size,
                                          Completion completion) {
  const ImageKey key{relativePath.text(), size.width, size.height};
  int generation = 0;
  {
    MutexLock lock(mutex_);
    if (const auto image = kept(key)) {
      lock.unlock();
      return callHere(completion, image);
    }
    generation = generation_;
    auto& waiting = waiting_[{key, generation}];
    waiting.push_back(std::move(completion));
    if (waiting.size() > 1) return;
  }
  RequestOptions options;
  options.queue = queue_;
  KVLEncoding::imageFromSession(
      *session_, relativePath, size,
      [source = weak_from_this(), key, generation](const std::shared_ptr<Image>& image,
                                                   const URLResponseRef& /*response*/,
                                                   const std::optional<Error>& /*error*/) {
        Completions waiting;
        if (const auto self = source.lock()) waiting = self->arrived(key, image, generation);
        callWhileThere(source, waiting, image);
      },
      options);
}

void ImageSource::Implementation::callHere(const Completion& completion,
                                           const std::shared_ptr<Image>& image) {
  if (QThread::currentThread() == thread_) return completion(image);
  queue_->async([source = weak_from_this(), completion, image] {
    callWhileThere(source, {completion}, image);
  });
}

Completions ImageSource::Implementation::arrived(const ImageKey& key,
                                                 const std::shared_ptr<Image>& image,
                                                 int generation) {
  const MutexLock lock(mutex_);
  if (image && generation == generation_) keep(key, image);
  auto node = waiting_.extract({key, generation});
  return node ? std::move(node.mapped()) : Completions();
}

std::shared_ptr<Image> ImageSource::Implementation::kept(const ImageKey& key) {
  const auto place = places_.find(key);
  if (place == places_.end()) return nullptr;
  images_.splice(images_.begin(), images_, place->second);
  return place->second->second;
}

void ImageSource::Implementation::keep(const ImageKey& key, const std::shared_ptr<Image>& image) {
  images_.emplace_front(key, image);
  places_[key] = images_.begin();
  while (images_.size() > most_) {
    places_.erase(images_.back().first);
    images_.pop_back();
  }
}

void ImageSource::Implementation::forget() {
  const MutexLock lock(mutex_);
  ++generation_;
  places_.clear();
  images_.clear();
}

ImageSource::ImageSource(std::shared_ptr<KVLSession> session, std::size_t most)
    : implementation_(std::make_shared<Implementation>(std::move(session), most)) {}

ImageSource::~ImageSource() = default;

void ImageSource::imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, Size size,
                                        Completion completionHandler) {
  implementation_->request(relativePath, size, std::move(completionHandler));
}

void ImageSource::forget() {
  implementation_->forget();
}

}  // namespace kvl::qt
