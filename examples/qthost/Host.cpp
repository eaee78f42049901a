#include "examples/qthost/Host.h"

#include "examples/qthost/GuiThread.h"

#include <local/qt/Conversions.h>

namespace qthost {

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
  }
  return {};
}

}  // namespace qthost
