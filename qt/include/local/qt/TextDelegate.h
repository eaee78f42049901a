/// @file
/// Cells whose texts are a service's.
#pragma once

#include <local/platform/Export.h>

#include <QStyledItemDelegate>

namespace kvl::qt {

/// Shows each text as its own letters run, at the side where it begins: a name from right to left
/// stands at the right. Code runs from left to right, whatever the user's language is.
class KVL_EXPORT TextDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  /// For one view or several.
  explicit TextDelegate(QObject* parent = nullptr);
  ~TextDelegate() override;

 protected:
  /// Sets alignment and direction by the text's own letters.
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

}  // namespace kvl::qt
