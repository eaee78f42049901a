// Text that is no prose.
#pragma once

#include <QStyledItemDelegate>

namespace qthost {

// Shows cells of a view whose text is code: from left to right, whatever the user's language is.
class TechnicalText : public QStyledItemDelegate {
  Q_OBJECT

 public:
  using QStyledItemDelegate::QStyledItemDelegate;

 protected:
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

}  // namespace qthost
