#include "qt/menu/MenuIcons.h"

#include "platform/core/NoDestructor.h"
#include "qt/GuiThread.h"

#include <local/KVLEncodingMenus.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Mutex.h>
#include <local/qt/Conversions.h>

#include <QEvent>
#include <QObject>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <iterator>
#include <list>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

// A picture that was asked for.
struct Picture {
  std::weak_ptr<Image> image;
  Size size;
  double scale = 1;
  QImage pixels;  // null until it has been drawn

  [[nodiscard]] bool isOf(const std::shared_ptr<Image>& other) const {
    return !image.owner_before(other) && !other.owner_before(image) && image.lock() == other;
  }
};

struct Drawing {
  std::weak_ptr<Picture> picture;
  std::shared_ptr<Image> image;
  Bitmap bitmap;
};

// Where workers leave drawings for the GUI thread.
class Tray {
 public:
  explicit Tray(QObject& receiver) : relay_(receiver) {}

  // Any thread.
  void put(Drawing drawing) {
    const MutexLock lock(mutex_);
    if (closed_) return;
    drawings_.push_back(std::move(drawing));
    relay_();
  }

  // GUI thread. The drawings that `event` announces.
  std::vector<Drawing> take(const QEvent& event) {
    const MutexLock lock(mutex_);
    if (!relay_.take(event)) return {};
    return std::exchange(drawings_, {});
  }
  // From now on nothing is posted, so that the receiver can go away.
  void close() {
    std::vector<Drawing> forgotten;
    const MutexLock lock(mutex_);
    closed_ = true;
    forgotten.swap(drawings_);
  }

 private:
  Mutex mutex_;
  bool closed_ KVL_GUARDED_BY(mutex_) = false;
  std::vector<Drawing> drawings_ KVL_GUARDED_BY(mutex_);
  Relay relay_;
};

// How much of its own size an image has in the square of icons.
double shrinking(Size size) {
  const double longest = std::max(size.width, size.height);
  return longest > 0 ? std::min(1.0, MenuIcons::side() / longest) : 1;
}

// Equal to itself, also where a length is no number.
Size comparable(Size size) {
  const auto number = [](double length) { return std::isnan(length) ? 0 : length; };
  return {number(size.width), number(size.height)};
}

// Runs drawings on worker threads, a few at a time, so that they leave the processor to everything
// else. One that takes long gives its place to the next. Any thread.
class Studio {
 public:
  using Block = DispatchQueue::Block;

  static Studio& shared() {
    static NoDestructor<Studio> studio;
    return *studio;
  }

  void draw(Block drawing) {
    const MutexLock lock(mutex_);
    waiting_.push_back(std::move(drawing));
    begin();
  }

 private:
  static constexpr int kPlaces = 2;
  static constexpr std::chrono::milliseconds kLong{100};

  struct Stay {
    bool hasPlace = true;
  };

  void begin() KVL_REQUIRES(mutex_) {
    for (; !waiting_.empty() && taken_ < kPlaces && running_ < MenuIcons::kMostDrawings;
         waiting_.pop_front()) {
      ++taken_;
      ++running_;
      const auto stay = std::make_shared<Stay>();
      queue_->async([this, stay, drawing = std::move(waiting_.front())] {
        drawing();
        end(*stay);
      });
      queue_->asyncAfter(kLong, [this, stay] { leavePlace(*stay); });
    }
  }

  void end(Stay& stay) {
    const MutexLock lock(mutex_);
    --running_;
    if (std::exchange(stay.hasPlace, false)) --taken_;
    begin();
  }

  void leavePlace(Stay& stay) {
    const MutexLock lock(mutex_);
    if (std::exchange(stay.hasPlace, false)) --taken_;
    begin();
  }

  const std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::concurrent("local.icons");
  Mutex mutex_;
  std::deque<Block> waiting_ KVL_GUARDED_BY(mutex_);
  int taken_ KVL_GUARDED_BY(mutex_) = 0;    // of the places
  int running_ KVL_GUARDED_BY(mutex_) = 0;  // with a place or without
};

// Nobody draws what nobody waits for any more.
void start(const std::shared_ptr<Picture>& picture, std::shared_ptr<Image> image,
           std::shared_ptr<Tray> tray) {
  const double scale = picture->scale * shrinking(picture->size);
  Studio::shared().draw(
      [waiting = std::weak_ptr(picture), image = std::move(image), tray = std::move(tray), scale] {
        if (!waiting.expired()) tray->put({waiting, image, image->rasterised(scale)});
      });
}

// The image may have grown since it was asked for.
QImage fitting(const QImage& picture, double scale) {
  const int side = static_cast<int>(std::lround(MenuIcons::side() * scale));
  QImage shrunk = picture.width() <= side && picture.height() <= side
                      ? picture
                      : picture.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  shrunk.setDevicePixelRatio(scale);
  return shrunk;
}

}  // namespace

class MenuIcons::Implementation final : public QObject {
 public:
  explicit Implementation(Arrival arrival)
      : arrival_(std::move(arrival)), tray_(std::make_shared<Tray>(*this)) {}
  ~Implementation() override { tray_->close(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  QImage picture(const std::shared_ptr<Image>& image, Size size, double scale) {
    const auto found = std::ranges::find_if(pictures_, [&](const auto& picture) {
      return picture->scale == scale && picture->size == size && picture->isOf(image);
    });
    if (found == pictures_.end()) return begin(image, size, scale);
    pictures_.splice(pictures_.begin(), pictures_, found);
    return (*found)->pixels;
  }

  bool event(QEvent* event) override {
    for (const Drawing& drawing : tray_->take(*event)) keep(drawing);
    return QObject::event(event);
  }

 private:
  QImage begin(const std::shared_ptr<Image>& image, Size size, double scale) {
    pictures_.push_front(std::make_shared<Picture>(Picture{image, size, scale, {}}));
    if (pictures_.size() > kMostPictures) pictures_.pop_back();
    start(pictures_.front(), image, tray_);
    return {};
  }

  void keep(const Drawing& drawing) {
    const auto picture = drawing.picture.lock();
    if (!picture) return;
    picture->pixels = fitting(qImage(drawing.bitmap), picture->scale);
    arrival_(drawing.image);
  }

  const Arrival arrival_;
  const std::shared_ptr<Tray> tray_;
  std::list<std::shared_ptr<Picture>> pictures_;  // those asked for last come first
};

MenuIcons::MenuIcons(Arrival arrival)
    : implementation_(std::make_unique<Implementation>(std::move(arrival))) {}
MenuIcons::~MenuIcons() = default;

QImage MenuIcons::picture(const std::shared_ptr<Image>& image, double scale) {
  return image ? implementation_->picture(image, comparable(image->size()), scale) : QImage();
}

int MenuIcons::side() {
  return std::max(1, static_cast<int>(std::lround(KVLEncoding::menuIconSize().height)));
}

}  // namespace kvl::qt
