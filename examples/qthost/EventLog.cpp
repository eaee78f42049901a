#include "examples/qthost/EventLog.h"

#include <local/qt/TextDelegate.h>

#include <QHeaderView>
#include <QScrollBar>

namespace qthost {
namespace {

constexpr int kNumberWidth = 70;

}  // namespace

EventLog::EventLog(kvl::qt::SessionObject& session, QWidget* parent) : QTreeView(parent) {
  auto* events = new kvl::qt::EventListModel(this);
  events->setSource(&session);
  setModel(events);
  setRootIsDecorated(false);
  setAlternatingRowColors(true);
  setUniformRowHeights(true);
  setAccessibleName(tr("Events"));
  setItemDelegate(new kvl::qt::TextDelegate(this));
  header()->resizeSection(kvl::qt::EventListModel::IdentifierColumn, kNumberWidth);
  connect(verticalScrollBar(), &QScrollBar::rangeChanged, this,
          [this, last = 0](int /*first*/, int next) mutable {
            if (verticalScrollBar()->value() >= last) scrollToBottom();
            last = next;
          });
}

}  // namespace qthost
