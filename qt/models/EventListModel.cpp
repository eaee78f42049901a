#include "qt/PlainText.h"

#include <local/qt/Conversions.h>
#include <local/qt/EventListModel.h>
#include <local/qt/SessionObject.h>

#include <QDateTime>
#include <QPointer>
#include <algorithm>
#include <deque>

namespace kvl::qt {
namespace {

QString textOrNone(const KVLEvent::Text& text) {
  return text ? qString(*text) : QString();
}

struct EventRow {
  Event event;
  QDateTime time;
};

QString textIn(const Event& event, int column) {
  switch (column) {
    case EventListModel::IdentifierColumn:
      return event.identifier;
    case EventListModel::NameColumn:
      return event.name;
    default:
      return event.data;
  }
}

}  // namespace

Event eventOf(const KVLEvent& event) {
  return {textOrNone(event.event()), textOrNone(event.data()), textOrNone(event.identifier())};
}

struct EventListModel::Content {
  std::deque<EventRow> rows;
  int most = kUsualMost;
  QPointer<SessionObject> source;
};

EventListModel::EventListModel(QObject* parent)
    : QAbstractListModel(parent), content_(std::make_unique<Content>()) {}

EventListModel::~EventListModel() = default;

SessionObject* EventListModel::source() const {
  return content_->source;
}

void EventListModel::setSource(SessionObject* source) {
  SessionObject* before = content_->source;
  if (before == source) return;
  if (before != nullptr) before->disconnect(this);
  content_->source = source;
  if (source != nullptr) {
    connect(source, &SessionObject::eventsReceived, this, &EventListModel::append);
    connect(source, &QObject::destroyed, this, &EventListModel::sourceChanged);
  }
  Q_EMIT sourceChanged();
}

int EventListModel::most() const {
  return content_->most;
}

void EventListModel::setMost(int most) {
  most = std::max(most, 0);
  if (std::exchange(content_->most, most) == most) return;
  const int over = rowCount() - most;
  removeOldest(over);
  Q_EMIT mostChanged();
  if (over > 0) Q_EMIT countChanged();
}

void EventListModel::append(const QList<Event>& events) {
  const auto kept = events.last(std::min<qsizetype>(events.size(), content_->most));
  if (kept.isEmpty()) return;
  const int before = rowCount();
  removeOldest(before + static_cast<int>(kept.size()) - content_->most);
  const int first = rowCount();
  const auto now = QDateTime::currentDateTime();
  beginInsertRows({}, first, first + static_cast<int>(kept.size()) - 1);
  for (const Event& event : kept) content_->rows.push_back({event, now});
  endInsertRows();
  if (rowCount() != before) Q_EMIT countChanged();
}

void EventListModel::clear() {
  const int count = rowCount();
  removeOldest(count);
  if (count > 0) Q_EMIT countChanged();
}

void EventListModel::removeOldest(int count) {
  if (count <= 0) return;
  beginRemoveRows({}, 0, count - 1);
  content_->rows.erase(content_->rows.begin(), content_->rows.begin() + count);
  endRemoveRows();
}

int EventListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(content_->rows.size());
}

int EventListModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : DataColumn + 1;
}

QVariant EventListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const auto& [event, time] = content_->rows[static_cast<std::size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      return lineOf(utf8(textIn(event, index.column())));
    case NameRole:
      return event.name;
    case DataRole:
      return event.data;
    case IdentifierRole:
      return event.identifier;
    case TimeRole:
      return time;
    default:
      return {};
  }
}

QVariant EventListModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  switch (section) {
    case IdentifierColumn:
      return tr("Number");
    case NameColumn:
      return tr("Event");
    default:
      return tr("Data");
  }
}

QHash<int, QByteArray> EventListModel::roleNames() const {
  auto names = QAbstractListModel::roleNames();
  names.insert(
      {{NameRole, "name"}, {DataRole, "data"}, {IdentifierRole, "identifier"}, {TimeRole, "time"}});
  return names;
}

}  // namespace kvl::qt
