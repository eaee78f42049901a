#include <local/qt/DocumentTree.h>
#include <local/qt/TextDelegate.h>

#include <QHeaderView>

namespace kvl::qt {
namespace {

constexpr int kWidestKey = 300;
constexpr int kMostUnfoldedRows = 5000;

}  // namespace

DocumentTree::DocumentTree(QWidget* parent) : QTreeView(parent), model_(new DocumentModel(this)) {
  setModel(model_);
  setAlternatingRowColors(true);
  setUniformRowHeights(true);
  setItemDelegate(new TextDelegate(this));
  header()->setSectionResizeMode(DocumentModel::KeyColumn, QHeaderView::ResizeToContents);
  header()->setMaximumSectionSize(kWidestKey);
}

DocumentTree::~DocumentTree() = default;

void DocumentTree::setDocument(const Value& document) {
  model_->setDocument(document);
  int rows = model_->rowCount();
  for (int i = 0; i < model_->rowCount(); ++i) {
    const auto row = model_->index(i, 0);
    rows += model_->rowCount(row);
    if (rows > kMostUnfoldedRows) break;
    if (model_->hasChildren(row)) expand(row);
  }
}

}  // namespace kvl::qt
