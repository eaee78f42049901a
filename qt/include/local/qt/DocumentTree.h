/// @file
/// A document on the screen.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Value.h>
#include <local/qt/DocumentModel.h>

#include <QTreeView>

namespace kvl::qt {

/// A `QTreeView` of a `DocumentModel` of its own. The first values are unfolded, as long as that
/// takes no more than some thousand rows.
class KVL_EXPORT DocumentTree : public QTreeView {
  Q_OBJECT

 public:
  /// An empty tree.
  explicit DocumentTree(QWidget* parent = nullptr);
  ~DocumentTree() override;

  /// Shows `document` instead of the one before.
  void setDocument(const Value& document);
  /// The model, which belongs to the tree.
  [[nodiscard]] DocumentModel* documentModel() const { return model_; }

 private:
  DocumentModel* const model_;
};

}  // namespace kvl::qt
