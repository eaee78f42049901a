/// @file
/// The events of a service as Qt has them.
#pragma once

#include <local/KVLEvent.h>
#include <local/platform/Export.h>

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

namespace kvl::qt {

/// One event of the stream. A text that the event does not have is a null string.
struct Event {
  Q_GADGET_EXPORT(KVL_EXPORT)
  /// The "event" line.
  Q_PROPERTY(QString name MEMBER name)
  /// The "data" line.
  Q_PROPERTY(QString data MEMBER data)
  /// The "id" line.
  Q_PROPERTY(QString identifier MEMBER identifier)

 public:
  QString name;
  QString data;
  QString identifier;

  /// The same three texts.
  friend bool operator==(const Event&, const Event&) = default;
};

/// What `event` holds now. Any thread.
[[nodiscard]] KVL_EXPORT Event eventOf(const KVLEvent& event);

}  // namespace kvl::qt
