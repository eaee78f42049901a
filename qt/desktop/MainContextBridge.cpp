#include "qt/desktop/MainContextBridge.h"

#include <local/platform/Log.h>

#include <glib.h>

#include <set>
#include <vector>

namespace kvl::qt {
namespace {

// As many as the context has of its own; it says when there are more.
constexpr int kUsualDescriptors = 8;

bool servedByQt(const QAbstractEventDispatcher& dispatcher) {
  return dispatcher.inherits("QEventDispatcherGlib");
}

}  // namespace

// What the context waits for.
class MainContextBridge::Wishes {
 public:
  Wishes() {
    gint priority = 0;
    ready_ = g_main_context_prepare(g_main_context_default(), &priority) != FALSE;
    descriptors_.resize(kUsualDescriptors);
    auto count = query(priority);
    if (count > kUsualDescriptors) {
      descriptors_.resize(static_cast<std::size_t>(count));
      count = query(priority);
    }
    descriptors_.resize(static_cast<std::size_t>(count));
  }

  // In milliseconds; -1 for no limit.
  [[nodiscard]] int timeout() const { return ready_ ? 0 : timeout_; }

  [[nodiscard]] std::set<Place> places() const {
    std::set<Place> places;
    for (const auto& descriptor : descriptors_) {
      if ((descriptor.events & (G_IO_IN | G_IO_HUP | G_IO_ERR)) != 0)
        places.emplace(descriptor.fd, QSocketNotifier::Read);
      if ((descriptor.events & G_IO_OUT) != 0)
        places.emplace(descriptor.fd, QSocketNotifier::Write);
      if ((descriptor.events & G_IO_PRI) != 0)
        places.emplace(descriptor.fd, QSocketNotifier::Exception);
    }
    return places;
  }

 private:
  int query(gint priority) {
    return g_main_context_query(g_main_context_default(), priority, &timeout_, descriptors_.data(),
                                static_cast<gint>(descriptors_.size()));
  }

  bool ready_ = false;
  gint timeout_ = -1;
  std::vector<GPollFD> descriptors_;
};

std::shared_ptr<MainContextBridge> MainContextBridge::whereNeeded() {
  static std::weak_ptr<MainContextBridge> present;
  if (auto bridge = present.lock()) return bridge;
  auto* dispatcher = QAbstractEventDispatcher::instance();
  if (dispatcher == nullptr || servedByQt(*dispatcher)) return nullptr;
  // Kept until the end: GLib wakes only the owner when other threads add something.
  if (g_main_context_acquire(g_main_context_default()) == FALSE) {
    log(LogCategory::desktop, LogLevel::warning,
        "the main queue is served by another thread than Qt's");
    return nullptr;
  }
  auto bridge = std::make_shared<MainContextBridge>(*dispatcher);
  present = bridge;
  return bridge;
}

MainContextBridge::MainContextBridge(QAbstractEventDispatcher& dispatcher) {
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, &MainContextBridge::serve);
  // Some loops only look for events and never block.
  for (const auto signal :
       {&QAbstractEventDispatcher::awake, &QAbstractEventDispatcher::aboutToBlock})
    connect(&dispatcher, signal, this, &MainContextBridge::prepare);
  prepare();
}

MainContextBridge::~MainContextBridge() {
  g_main_context_release(g_main_context_default());
}

void MainContextBridge::prepare() {
  watch(Wishes());
}

void MainContextBridge::watch(const Wishes& wishes) {
  if (wishes.timeout() < 0) {
    timer_.stop();
  } else if (!timer_.isActive() || timer_.remainingTime() > wishes.timeout()) {
    timer_.start(wishes.timeout());
  }
  auto places = wishes.places();
  for (auto known = notifiers_.begin(); known != notifiers_.end();) {
    if (places.erase(known->first) != 0) {
      ++known;
      continue;
    }
    // Later: it may be telling at this moment.
    known->second->setEnabled(false);
    known->second->deleteLater();
    known = notifiers_.erase(known);
  }
  for (const auto& place : places) addNotifier(place);
}

void MainContextBridge::addNotifier(const Place& place) {
  auto* notifier = new QSocketNotifier(place.first, place.second, this);
  connect(notifier, &QSocketNotifier::activated, this, &MainContextBridge::serve);
  notifiers_.emplace(place, notifier);
}

void MainContextBridge::serve() {
  g_main_context_iteration(g_main_context_default(), FALSE);
}

}  // namespace kvl::qt
