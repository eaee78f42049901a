#include "examples/qthost/TechnicalText.h"

namespace qthost {

void TechnicalText::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
  QStyledItemDelegate::initStyleOption(option, index);
  const bool isMirrored = option->direction == Qt::RightToLeft;
  option->displayAlignment = (isMirrored ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter;
  option->direction = Qt::LeftToRight;
}

}  // namespace qthost
