// The session with the service, as the windows see it.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Mutex.h>

#include <QObject>
#include <QString>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

class KVLEncodingImageSource;

namespace qthost {

// Receives a session's events on the framework's queue. However fast they come, the GUI thread is
// called once for many, and no more than the latest are kept for it.
class EventInbox : public KVLSessionDelegate {
 public:
  using Events = std::deque<std::shared_ptr<KVLEvent>>;

  static constexpr std::size_t kMostKept = 1000;

  // `arrived` is called on the framework's queue when there is something to take and nothing was.
  explicit EventInbox(std::function<void()> arrived);

  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override;
  void add(const std::vector<std::shared_ptr<KVLEvent>>& events);

  // What has come since the last time. Any thread.
  [[nodiscard]] Events take();

 private:
  const std::function<void()> arrived_;
  kvl::Mutex mutex_;
  Events events_ KVL_GUARDED_BY(mutex_);
};

// Owns the session and tells on the GUI thread what it tells on its own queues. All windows share
// one, which outlives them.
class Host : public QObject {
  Q_OBJECT

 public:
  // `events` is the source of the event stream; empty for none.
  explicit Host(const QString& events);
  ~Host() override;

  [[nodiscard]] KVLSession& session() const { return *session_; }
  // Where menus have their icons from.
  [[nodiscard]] const std::shared_ptr<KVLEncodingImageSource>& icons() const { return icons_; }

  // The state that was told last.
  [[nodiscard]] KVLSessionState state() const { return state_; }
  [[nodiscard]] bool isEstablished() const { return state_ == KVLSessionStateEstablished; }

 Q_SIGNALS:
  void stateChanged();
  void progressChanged();
  void eventsReceived(const qthost::EventInbox::Events& events);

 private:
  void setState(KVLSessionState state);
  void deliverEvents();

  const std::shared_ptr<EventInbox> inbox_;  // the session holds it weakly
  const std::shared_ptr<KVLSession> session_;
  const std::shared_ptr<KVLEncodingImageSource> icons_;
  KVLSessionState state_ = KVLSessionStateConnecting;
  kvl::Observation states_;
  kvl::Observation progress_;
};

// "Established", ...
[[nodiscard]] QString stateText(KVLSessionState state);

}  // namespace qthost
