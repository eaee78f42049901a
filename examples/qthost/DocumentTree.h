// A document as a tree.
#pragma once

#include <local/platform/Value.h>

#include <QTreeWidget>

namespace qthost {

// Keys and values of a document, the first of them unfolded. Of a large document it shows the
// beginning.
class DocumentTree : public QTreeWidget {
  Q_OBJECT

 public:
  static constexpr int kMostRows = 5000;

  explicit DocumentTree(QWidget* parent = nullptr);

  void setDocument(const kvl::Value& document);
};

}  // namespace qthost
