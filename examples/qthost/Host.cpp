#include "examples/qthost/Host.h"

#include "examples/qthost/GuiThread.h"

#include <local/KVLEncodingMenus.h>
#include <local/KVLEncodingSession.h>
#include <local/qt/Conversions.h>

#include <map>
#include <string>
#include <utility>

namespace qthost {
namespace {

// Fetches icons from the service and keeps them: whatever asks for the same icon shares it, and
// asks only once. GUI thread.
class IconSource : public KVLEncodingImageSource, public std::enable_shared_from_this<IconSource> {
 public:
  explicit IconSource(std::shared_ptr<KVLSession> session) : session_(std::move(session)) {}

  void imageWithRelativePath(const KVLEncoding::RelativePath& relativePath, kvl::Size size,
                             Completion completionHandler) override;

 private:
  void arrived(const std::string& path, const std::shared_ptr<kvl::Image>& icon);

  const std::shared_ptr<KVLSession> session_;
  std::map<std::string, std::shared_ptr<kvl::Image>> icons_;
  std::map<std::string, std::vector<Completion>> waiting_;
};

void IconSource::imageWithRelativePath(const KVLEncoding::RelativePath& relativePath,
                                       kvl::Size size, Completion completionHandler) {
  const std::string& path = relativePath.text();
  if (const auto known = icons_.find(path); known != icons_.end())
    return completionHandler(known->second);
  auto& waiting = waiting_[path];
  waiting.push_back(std::move(completionHandler));
  if (waiting.size() > 1) return;
  KVLEncoding::imageFromSession(
      *session_, relativePath, size,
      [source = weak_from_this(), path](std::shared_ptr<kvl::Image> icon,
                                        kvl::URLResponseRef /*response*/,
                                        const std::optional<kvl::Error>& /*error*/) {
        if (const auto self = source.lock()) self->arrived(path, icon);
      });
}

// An icon that did not come is asked for again by the next menu.
void IconSource::arrived(const std::string& path, const std::shared_ptr<kvl::Image>& icon) {
  if (icon) icons_[path] = icon;
  const auto waiting = waiting_.extract(path);
  for (const auto& completion : waiting.mapped()) completion(icon);
}

}  // namespace

EventInbox::EventInbox(std::function<void()> arrived) : arrived_(std::move(arrived)) {}

void EventInbox::eventStream(KVLSession& /*session*/,
                             const std::vector<std::shared_ptr<KVLEvent>>& events) {
  add(events);
}

void EventInbox::add(const std::vector<std::shared_ptr<KVLEvent>>& events) {
  bool wasEmpty = false;
  {
    const kvl::MutexLock lock(mutex_);
    wasEmpty = events_.empty();
    events_.insert(events_.end(), events.begin(), events.end());
    while (events_.size() > kMostKept) events_.pop_front();
  }
  if (wasEmpty) arrived_();
}

EventInbox::Events EventInbox::take() {
  const kvl::MutexLock lock(mutex_);
  return std::exchange(events_, {});
}

Host::Host(const QString& events)
    : inbox_(std::make_shared<EventInbox>([host = QPointer(this)] {
        onGuiThread(host, [](Host& self) { self.deliverEvents(); });
      })),
      session_(KVLSession::sessionWithNotary(nullptr, inbox_)),
      icons_(std::make_shared<IconSource>(session_)) {
  if (!events.isEmpty()) session_->setEventStreamSource(kvl::qt::utf8(events));
  states_ = session_->observeState([host = QPointer(this)](KVLSessionState state) {
    onGuiThread(host, [state](Host& self) { self.setState(state); });
  });
  progress_ = session_->progress()->observe([host = QPointer(this)](const auto& /*progress*/) {
    onGuiThread(host, [](Host& self) { Q_EMIT self.progressChanged(); });
  });
}

Host::~Host() = default;

void Host::setState(KVLSessionState state) {
  state_ = state;
  Q_EMIT stateChanged();
}

void Host::deliverEvents() {
  Q_EMIT eventsReceived(inbox_->take());
}

QString stateText(KVLSessionState state) {
  switch (state) {
    case KVLSessionStateConnecting:
      return Host::tr("Connecting");
    case KVLSessionStateEstablished:
      return Host::tr("Established");
    case KVLSessionStateDisconnected:
      return Host::tr("Disconnected");
    case KVLSessionStateRecovering:
      return Host::tr("Recovering");
    case KVLSessionStateEnded:
      return Host::tr("Ended");
  }
  return {};
}

}  // namespace qthost
