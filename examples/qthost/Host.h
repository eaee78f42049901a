// The session with the service, as the windows see it.
#pragma once

#include "examples/qthost/EventInbox.h"
#include "examples/qthost/IconSource.h"

#include <local/KVLSession.h>

#include <QObject>
#include <QString>
#include <memory>

namespace qthost {

// Owns the session and tells on the GUI thread what it tells on its own queues. All windows share
// one, which outlives them.
class Host : public QObject {
  Q_OBJECT

 public:
  // `events` is the source of the event stream; empty for none.
  explicit Host(const QString& events);
  ~Host() override;

  [[nodiscard]] KVLSession& session() const { return *session_; }
  [[nodiscard]] const std::shared_ptr<IconSource>& icons() const { return icons_; }

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
  const std::shared_ptr<IconSource> icons_;
  KVLSessionState state_ = KVLSessionStateConnecting;
  kvl::Observation states_;
  kvl::Observation progress_;
};

// "Established", ...
[[nodiscard]] QString stateText(KVLSessionState state);

}  // namespace qthost
