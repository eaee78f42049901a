#include <local/qt/TextDelegate.h>

namespace kvl::qt {

TextDelegate::TextDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

TextDelegate::~TextDelegate() = default;

void TextDelegate::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const {
  QStyledItemDelegate::initStyleOption(option, index);
  const bool isMirrored = option->direction == Qt::RightToLeft;
  const bool isLeftwards = option->text.isRightToLeft();
  option->displayAlignment = (isMirrored || isLeftwards ? Qt::AlignRight : Qt::AlignLeft) |
                             Qt::AlignAbsolute | Qt::AlignVCenter;
  option->direction = isLeftwards ? Qt::RightToLeft : Qt::LeftToRight;
}

}  // namespace kvl::qt
