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
#include <functional>
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

// Starts drawings, a few at a time, so that they leave the processor to everything else. One that
// takes long gives its place to the next. Any thread.
class Studio {
 public:
  // Held by a drawing until it has ended.
  class Stay {
   public:
    explicit Stay(Studio& studio) : studio_(studio) {}
    ~Stay() { studio_.end(*this); }
    Stay(const Stay&) = delete;
    Stay& operator=(const Stay&) = delete;

   private:
    friend class Studio;
    Studio& studio_;
    bool hasPlace_ = true;  // guarded by the studio's mutex
  };
  using Drawing = std::function<void(std::shared_ptr<Stay> stay)>;  // starts it and returns

  static Studio& shared() {
    static NoDestructor<Studio> studio;
    return *studio;
  }

  void draw(Drawing drawing) {
    {
      const MutexLock lock(mutex_);
      waiting_.push_back(std::move(drawing));
    }
    begin();
  }

 private:
  static constexpr int kPlaces = 2;
  static constexpr std::chrono::milliseconds kLong{100};

  // Whoever is here already goes on with what has come: a drawing may end while it is started.
  void begin() {
    if (!enter()) return;
    while (const auto drawing = next()) {
      const auto stay = std::make_shared<Stay>(*this);
      timers_->asyncAfter(kLong, [this, watched = std::weak_ptr(stay)] {
        if (const auto late = watched.lock()) leavePlace(*late);
      });
      drawing(stay);
    }
  }

  bool enter() {
    const MutexLock lock(mutex_);
    return !std::exchange(starting_, true);
  }

  // Empty when there is none, or no place for it; then nobody is here any more.
  Drawing next() {
    const MutexLock lock(mutex_);
    starting_ = !waiting_.empty() && taken_ < kPlaces && running_ < MenuIcons::kMostDrawings;
    if (!starting_) return {};
    ++taken_;
    ++running_;
    Drawing drawing = std::move(waiting_.front());
    waiting_.pop_front();
    return drawing;
  }

  void end(Stay& stay) {
    {
      const MutexLock lock(mutex_);
      --running_;
      giveBack(stay);
    }
    begin();
  }

  void leavePlace(Stay& stay) {
    {
      const MutexLock lock(mutex_);
      giveBack(stay);
    }
    begin();
  }

  void giveBack(Stay& stay) KVL_REQUIRES(mutex_) {
    if (std::exchange(stay.hasPlace_, false)) --taken_;
  }

  const std::shared_ptr<DispatchQueue> timers_ = DispatchQueue::concurrent("local.icons");
  Mutex mutex_;
  std::deque<Drawing> waiting_ KVL_GUARDED_BY(mutex_);
  int taken_ KVL_GUARDED_BY(mutex_) = 0;    // of the places
  int running_ KVL_GUARDED_BY(mutex_) = 0;  // with a place or without
  bool starting_ KVL_GUARDED_BY(mutex_) = false;
};

// Nobody draws what nobody waits for any more, nor an image that has been let go.
void start(const std::shared_ptr<Picture>& picture, std::shared_ptr<Tray> tray) {
  Studio::shared().draw([waiting = std::weak_ptr(picture),
                         tray = std::move(tray)](const std::shared_ptr<Studio::Stay>& stay) {
    const auto wanted = waiting.lock();
    const auto image = wanted ? wanted->image.lock() : nullptr;
    if (!image) return;
    Image::rasterise(
        image, wanted->scale * shrinking(wanted->size),
        [waiting, tray, stay](Bitmap bitmap) { tray->put({waiting, std::move(bitmap)}); });
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
    start(pictures_.front(), tray_);
    return {};
  }

  void keep(const Drawing& drawing) {
    const auto picture = drawing.picture.lock();
    if (!picture) return;
    picture->pixels = fitting(qImage(drawing.bitmap), picture->scale);
    if (const auto image = picture->image.lock()) arrival_(image);
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
