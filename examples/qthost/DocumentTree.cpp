#include "examples/qthost/DocumentTree.h"

#include "examples/qthost/Texts.h"

#include <QHeaderView>
#include <deque>

namespace qthost {
namespace {

constexpr int kWidestKey = 300;

QString countOf(std::size_t count, const QString& one, const QString& more) {
  return count == 1 ? one : more.arg(count);
}

QString textOf(const kvl::Value& value) {
  if (const auto array = value.array())
    return countOf(array->size(), DocumentTree::tr("1 element"), DocumentTree::tr("%1 elements"));
  if (const auto dictionary = value.dictionary())
    return countOf(dictionary->size(), DocumentTree::tr("1 key"), DocumentTree::tr("%1 keys"));
  if (value.isNull()) return QStringLiteral("null");
  if (value.kind() == kvl::Value::Kind::boolean)
    return *value.boolean() ? QStringLiteral("true") : QStringLiteral("false");
  if (const auto string = value.string()) return lineOf(*string);
  return lineOf(value.description());
}

// Level by level, so that the rows that are shown are the upper ones and nesting takes no stack.
class Filler {
 public:
  explicit Filler(QTreeWidget& tree) : tree_(tree) {}

  void fill(const kvl::Value& document) {
    waiting_.push_back({tree_.invisibleRootItem(), document});
    for (; !waiting_.empty(); waiting_.pop_front()) addChildren(waiting_.front());
  }

 private:
  struct Node {
    QTreeWidgetItem* row;
    kvl::Value value;
  };

  void addChildren(const Node& node) {
    if (const auto dictionary = node.value.dictionary()) {
      for (const auto& [key, value] : *dictionary) addRow(node.row, lineOf(key), value);
    } else if (const auto array = node.value.array()) {
      for (std::size_t i = 0; i < array->size(); ++i)
        addRow(node.row, QString::number(i), (*array)[i]);
    } else if (node.row == tree_.invisibleRootItem()) {
      addRow(node.row, {}, node.value);
    }
  }

  void addRow(QTreeWidgetItem* parent, const QString& key, const kvl::Value& value) {
    if (rows_ > DocumentTree::kMostRows) return;
    const bool isLast = ++rows_ > DocumentTree::kMostRows;
    auto* row = new QTreeWidgetItem(
        parent, {isLast ? QStringLiteral("…") : key, isLast ? QString() : textOf(value)});
    const bool isContainer = value.array() || value.dictionary();
    if (isLast || !isContainer) return;
    row->setForeground(1, tree_.palette().placeholderText());
    waiting_.push_back({row, value});
  }

  QTreeWidget& tree_;
  std::deque<Node> waiting_;
  int rows_ = 0;
};

}  // namespace

DocumentTree::DocumentTree(QWidget* parent) : QTreeWidget(parent) {
  setColumnCount(2);
  setHeaderLabels({tr("Key"), tr("Value")});
  setAlternatingRowColors(true);
  setUniformRowHeights(true);
  setItemDelegate(new TechnicalText(this));
  header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  header()->setMaximumSectionSize(kWidestKey);
}

void DocumentTree::setDocument(const kvl::Value& document) {
  clear();
  Filler(*this).fill(document);
  expandToDepth(0);
}

}  // namespace qthost
