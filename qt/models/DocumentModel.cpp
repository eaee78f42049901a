#include "qt/PlainText.h"

#include <local/platform/Translation.h>
#include <local/qt/Conversions.h>
#include <local/qt/DocumentModel.h>

#include <QBrush>
#include <QGuiApplication>
#include <QPalette>
#include <algorithm>
#include <deque>
#include <limits>
#include <vector>

namespace kvl::qt {

struct DocumentRow {
  DocumentRow* parent = nullptr;
  int number = 0;  // within the parent
  Value value;
  bool isAsked = false;                  // whether a view has asked for children
  std::vector<DocumentRow*> children{};  // those that have been made
};

namespace {

int countOf(const Value& value) {
  const auto array = value.array();
  const auto dictionary = value.dictionary();
  const std::size_t count = array ? array->size() : dictionary ? dictionary->size() : 0;
  return static_cast<int>(std::min<std::size_t>(count, std::numeric_limits<int>::max()));
}

bool isContainer(const Value& value) {
  return value.kind() == Value::Kind::array || value.kind() == Value::Kind::dictionary;
}

QString counted(std::size_t count, std::string_view one, std::string_view many) {
  return qString(translatedForCount(one, many, count))
      .replace(QLatin1String("%1"), QString::number(count));
}

QString shownText(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::null:
      return QStringLiteral("null");
    case Value::Kind::boolean:
      return *value.boolean() ? QStringLiteral("true") : QStringLiteral("false");
    case Value::Kind::string:
      return lineOf(*value.string());
    case Value::Kind::data:
      return counted(value.data()->size(), "1 byte", "%1 bytes");
    case Value::Kind::array:
      return counted(value.array()->size(), "1 element", "%1 elements");
    case Value::Kind::dictionary:
      return counted(value.dictionary()->size(), "1 key", "%1 keys");
    default:
      return lineOf(value.description());
  }
}

QString kindOf(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return QStringLiteral("boolean");
    case Value::Kind::integer:
      return QStringLiteral("integer");
    case Value::Kind::real:
      return QStringLiteral("real");
    case Value::Kind::object:
      return QStringLiteral("object");
    default:
      return qString(value.typeName());
  }
}

}  // namespace

// The rows that have been made, without recursion however deeply they are nested.
class DocumentModel::Rows {
 public:
  void clear() {
    all_.clear();
    root_ = {};
    isBare_ = false;
  }

  // A value that is no container stands in a row of its own.
  void setDocument(const Value& document) {
    clear();
    isBare_ = !isContainer(document);
    root_.value = isBare_ ? Value(Array{document}) : document;
  }

  [[nodiscard]] DocumentRow& at(const QModelIndex& index) {
    return index.isValid() ? *static_cast<DocumentRow*>(index.internalPointer()) : root_;
  }
  [[nodiscard]] const DocumentRow& root() const { return root_; }

  // Nobody has been told of fewer before, so that the first ones may simply be there.
  const std::vector<DocumentRow*>& childrenOf(DocumentRow& row) {
    if (!std::exchange(row.isAsked, true)) make(row, missing(row));
    return row.children;
  }

  // How many more can be made at once.
  [[nodiscard]] static int missing(const DocumentRow& row) {
    return std::min(countOf(row.value) - static_cast<int>(row.children.size()), kFetched);
  }

  void make(DocumentRow& row, int count) {
    const auto array = row.value.array();
    const auto dictionary = row.value.dictionary();
    for (int i = 0; i < count; ++i) {
      const auto number = row.children.size();
      const Value& value = array ? (*array)[number] : dictionary->begin()[number].second;
      all_.push_back({&row, static_cast<int>(number), value});
      row.children.push_back(&all_.back());
    }
  }

  [[nodiscard]] QString keyOf(const DocumentRow& row, bool isLine) const {
    if (isBare_) return {};
    const auto dictionary = row.parent->value.dictionary();
    if (!dictionary) return QString::number(row.number);
    const auto key = dictionary->begin()[row.number].first;
    return isLine ? lineOf(key) : qString(key);
  }

 private:
  DocumentRow root_;
  bool isBare_ = false;
  std::deque<DocumentRow> all_;
};

DocumentModel::DocumentModel(QObject* parent)
    : QAbstractItemModel(parent), rows_(std::make_unique<Rows>()) {}

DocumentModel::~DocumentModel() = default;

void DocumentModel::setDocument(const Value& document) {
  beginResetModel();
  rows_->setDocument(document);
  endResetModel();
}

void DocumentModel::clear() {
  beginResetModel();
  rows_->clear();
  endResetModel();
}

Value DocumentModel::valueAt(const QModelIndex& index) const {
  return index.isValid() ? rows_->at(index).value : Value();
}

QModelIndex DocumentModel::index(int row, int column, const QModelIndex& parent) const {
  if (!hasIndex(row, column, parent)) return {};
  const auto& children = rows_->childrenOf(rows_->at(parent));
  return createIndex(row, column, children[static_cast<std::size_t>(row)]);
}

QModelIndex DocumentModel::parent(const QModelIndex& child) const {
  if (!child.isValid()) return {};
  DocumentRow* parent = rows_->at(child).parent;
  return parent == &rows_->root() ? QModelIndex() : createIndex(parent->number, 0, parent);
}

int DocumentModel::rowCount(const QModelIndex& parent) const {
  if (parent.column() > 0) return 0;
  return static_cast<int>(rows_->childrenOf(rows_->at(parent)).size());
}

int DocumentModel::columnCount(const QModelIndex& /*parent*/) const {
  return ValueColumn + 1;
}

bool DocumentModel::hasChildren(const QModelIndex& parent) const {
  return parent.column() <= 0 && countOf(rows_->at(parent).value) > 0;
}

bool DocumentModel::canFetchMore(const QModelIndex& parent) const {
  if (parent.column() > 0) return false;
  DocumentRow& row = rows_->at(parent);
  rows_->childrenOf(row);
  return Rows::missing(row) > 0;
}

void DocumentModel::fetchMore(const QModelIndex& parent) {
  if (!canFetchMore(parent)) return;
  DocumentRow& row = rows_->at(parent);
  const int first = static_cast<int>(row.children.size());
  const int count = Rows::missing(row);
  beginInsertRows(parent, first, first + count - 1);
  rows_->make(row, count);
  endInsertRows();
}

QVariant DocumentModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) return {};
  const DocumentRow& row = rows_->at(index);
  switch (role) {
    case Qt::DisplayRole:
      return index.column() == KeyColumn ? rows_->keyOf(row, true) : shownText(row.value);
    case Qt::ForegroundRole:
      if (index.column() == KeyColumn || !isContainer(row.value)) return {};
      return QGuiApplication::palette().placeholderText();
    case KeyRole:
      return rows_->keyOf(row, false);
    case ValueRole:
      return isContainer(row.value) ? QVariant() : variant(row.value);
    case KindRole:
      return kindOf(row.value);
    case TextRole:
      return shownText(row.value);
    default:
      return {};
  }
}

QVariant DocumentModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  return section == KeyColumn ? tr("Key") : tr("Value");
}

QHash<int, QByteArray> DocumentModel::roleNames() const {
  auto names = QAbstractItemModel::roleNames();
  names.insert({{KeyRole, "key"}, {ValueRole, "value"}, {KindRole, "kind"}, {TextRole, "text"}});
  return names;
}

}  // namespace kvl::qt
