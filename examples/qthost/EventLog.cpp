#include "examples/qthost/EventLog.h"

#include "examples/qthost/Texts.h"

#include <QHeaderView>
#include <QScrollBar>

namespace qthost {
namespace {

constexpr int kNumberWidth = 70;

QString textOf(const KVLEvent::Text& text) {
  return text ? lineOf(*text) : QString();
}

}  // namespace

EventLog::EventLog(QWidget* parent) : QTreeWidget(parent) {
  setColumnCount(3);
  setHeaderLabels({tr("Number"), tr("Event"), tr("Data")});
  setRootIsDecorated(false);
  setAlternatingRowColors(true);
  setUniformRowHeights(true);
  setAccessibleName(tr("Events"));
  setItemDelegate(new TechnicalText(this));
  header()->resizeSection(0, kNumberWidth);
}

void EventLog::add(const EventInbox::Events& events) {
  const bool follows = verticalScrollBar()->value() == verticalScrollBar()->maximum();
  QList<QTreeWidgetItem*> lines;
  for (const auto& event : events)
    lines.append(new QTreeWidgetItem(
        {textOf(event->identifier()), textOf(event->event()), textOf(event->data())}));
  addTopLevelItems(lines);
  while (topLevelItemCount() > kMostLines) delete topLevelItem(0);
  if (follows) scrollToBottom();
}

}  // namespace qthost
