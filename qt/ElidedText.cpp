#include "qt/ElidedText.h"

#include "qt/Contrast.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QPainter>
#include <QStyle>
#include <algorithm>
#include <cmath>

namespace kvl::qt {
namespace {

// In device-independent pixels. Windows do not become wider for longer texts.
constexpr int kWidestWish = 400;
// How many letters there is room for at least.
constexpr int kFewestPrimaryLetters = 30;
constexpr int kFewestSecondaryLetters = 6;
// How much of the text's colour secondary text keeps.
constexpr double kSecondaryShare = 0.65;

}  // namespace

int widthOf(const QString& line, const QFont& font) {
  return static_cast<int>(std::ceil(QFontMetricsF(font).horizontalAdvance(line)));
}

void paintLine(QPainter& painter, const QRect& rect, const QString& line, Qt::Alignment alignment,
               const QFontMetrics& metrics, int flags) {
  painter.setLayoutDirection(line.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
  painter.drawText(rect,
                   static_cast<int>(alignment | Qt::AlignAbsolute) | Qt::TextSingleLine | flags,
                   metrics.elidedText(line, Qt::ElideRight, rect.width()));
}

ElidedText::ElidedText(Tone tone, QWidget* parent) : QWidget(parent), tone_(tone) {
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  hide();
}

void ElidedText::setText(const QString& text) {
  if (text == text_) return;
  text_ = text;
  setVisible(!text.isEmpty());
  updateGeometry();
  update();
}

QSize ElidedText::sizeHint() const {
  return {std::min(widthOf(text_, font()), kWidestWish), fontMetrics().height()};
}

QSize ElidedText::minimumSizeHint() const {
  const auto metrics = fontMetrics();
  const int letters = tone_ == Tone::primary ? kFewestPrimaryLetters : kFewestSecondaryLetters;
  return QSize(letters * metrics.averageCharWidth(), metrics.height()).boundedTo(sizeHint());
}

void ElidedText::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  const auto text = palette().color(QPalette::WindowText);
  painter.setPen(tone_ == Tone::primary
                     ? text
                     : tonedDown(text, palette().color(QPalette::Window), kSecondaryShare));
  const auto side = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft);
  paintLine(painter, rect(), text_, side | Qt::AlignVCenter, painter.fontMetrics());
}

void ElidedText::changeEvent(QEvent* event) {
  if (event->type() == QEvent::FontChange) updateGeometry();
  QWidget::changeEvent(event);
}

}  // namespace kvl::qt
