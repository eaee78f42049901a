#include <local/qt/Notice.h>

#include <QPalette>

namespace kvl::qt {
namespace {

// Dark on light and light on dark.
QColor errorColor(const QPalette& palette) {
  const bool isDark = palette.color(QPalette::Window).lightness() < 128;
  return isDark ? QColor(0xff, 0x8a, 0x80) : QColor(0xb0, 0x1c, 0x1c);
}

}  // namespace

Notice::Notice(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setWordWrap(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse);
  hide();
}

Notice::~Notice() = default;

void Notice::showOutcome(const QString& text) {
  setPalette({});
  setText(text);
  const bool isAtRight = isRightToLeft() || text.isRightToLeft();
  setAlignment((isAtRight ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignAbsolute | Qt::AlignVCenter);
  setVisible(!text.isEmpty());
}

void Notice::showError(const QString& text) {
  showOutcome(text);
  QPalette colors;  // nothing of it counts but what is set here
  colors.setColor(QPalette::WindowText, errorColor(palette()));
  setPalette(colors);
}

}  // namespace kvl::qt
