#include "qt/MenuMarks.h"

#include <QPainter>
#include <QPolygonF>

namespace kvl::qt {
namespace {

// Line width by side of the mark.
constexpr double kStroke = 0.16;

void paintCheck(QPainter& painter, const QRectF& rect) {
  const auto at = [&](double x, double y) {
    return rect.topLeft() + QPointF(x * rect.width(), y * rect.height());
  };
  painter.drawPolyline(QPolygonF({at(0.1, 0.55), at(0.38, 0.83), at(0.9, 0.18)}));
}

// On whole pixels, so that it is sharp.
void paintDash(QPainter& painter, const QRect& rect) {
  const int thickness = std::max(1, qRound(rect.height() * kStroke));
  const QRect dash(rect.left() + rect.width() / 10,
                   rect.top() + (rect.height() - thickness + 1) / 2, rect.width() * 4 / 5,
                   thickness);
  painter.fillRect(dash, painter.pen().color());
}

}  // namespace

void paintMark(QPainter& painter, const QRect& rect, MenuItem::State state, const QColor& colour) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(colour, rect.width() * kStroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  if (state == MenuItem::State::on)
    paintCheck(painter, rect);
  else if (state == MenuItem::State::mixed)
    paintDash(painter, rect);
  painter.restore();
}

void paintPill(QPainter& painter, const QRect& rect, const QColor& colour) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(colour);
  painter.drawRoundedRect(rect, rect.height() / 2.0, rect.height() / 2.0);
  painter.restore();
}

}  // namespace kvl::qt
