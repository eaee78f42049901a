// The events of the service, a line each.
#pragma once

#include <local/qt/EventListModel.h>
#include <local/qt/SessionObject.h>

#include <QTreeView>

namespace qthost {

// Shows the latest events and follows new ones while the last line is in sight.
class EventLog : public QTreeView {
  Q_OBJECT

 public:
  explicit EventLog(kvl::qt::SessionObject& session, QWidget* parent = nullptr);
};

}  // namespace qthost
