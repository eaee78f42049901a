// The events of the service, a line each.
#pragma once

#include "examples/qthost/Host.h"

#include <QTreeWidget>

namespace qthost {

// Shows the latest events and follows new ones while the last line is in sight.
class EventLog : public QTreeWidget {
  Q_OBJECT

 public:
  static constexpr int kMostLines = 1000;

  explicit EventLog(QWidget* parent = nullptr);

  void add(const EventInbox::Events& events);
};

}  // namespace qthost
