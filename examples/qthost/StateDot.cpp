#include "examples/qthost/StateDot.h"

#include <QPainter>

namespace qthost {

using kvl::qt::SessionObject;

namespace {

constexpr int kSide = 16;
constexpr qreal kDiameter = 9;
constexpr qreal kStroke = 2;
constexpr int kHalfTurn = 180 * 16;  // as QPainter counts

QColor colorOf(SessionObject::State state) {
  switch (state) {
    case SessionObject::Connecting:
    case SessionObject::Ended:
      return {0x8a, 0x8a, 0x8a};
    case SessionObject::Established:
      return {0x2e, 0x9e, 0x44};
    case SessionObject::Disconnected:
      return {0xd2, 0x3b, 0x3b};
    case SessionObject::Recovering:
      return {0xe0, 0x9a, 0x1a};
  }
  return {};
}

void drawCross(QPainter& painter, const QRectF& place) {
  painter.drawLine(place.topLeft(), place.bottomRight());
  painter.drawLine(place.topRight(), place.bottomLeft());
}

}  // namespace

void drawState(QPainter& painter, const QRectF& place, SessionObject::State state) {
  const QColor color = colorOf(state);
  constexpr qreal kInset = kStroke / 2;
  const QRectF lines = place.adjusted(kInset, kInset, -kInset, -kInset);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(color, kStroke));
  const bool isCross = state == SessionObject::Disconnected || state == SessionObject::Ended;
  if (isCross) return drawCross(painter, lines);
  painter.setBrush(state == SessionObject::Established ? QBrush(color) : QBrush(Qt::NoBrush));
  painter.drawEllipse(lines);
  painter.setBrush(color);
  if (state == SessionObject::Recovering) painter.drawChord(lines, 0, -kHalfTurn);
}

StateDot::StateDot(const SessionObject& session, QWidget* parent)
    : QWidget(parent), session_(session) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  connect(&session, &SessionObject::stateChanged, this, &StateDot::showState);
  showState();
}

QSize StateDot::sizeHint() const {
  return {kSide, kSide};
}

void StateDot::showState() {
  const QString text = tr("Session: %1").arg(session_.stateText());
  setToolTip(text);
  setAccessibleName(text);
  update();
}

void StateDot::paintEvent(QPaintEvent* /*event*/) {
  QRectF dot(0, 0, kDiameter, kDiameter);
  dot.moveCenter(QRectF(rect()).center());
  QPainter painter(this);
  drawState(painter, dot, session_.state());
}

}  // namespace qthost
