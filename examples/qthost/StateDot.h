// The state of the session at a glance.
#pragma once

#include "examples/qthost/Host.h"

#include <QWidget>

class QPainter;

namespace qthost {

// Draws the sign of a state into `place`: a disc for established, a ring for connecting, half a
// disc in a ring for recovering, a cross for disconnected.
void drawState(QPainter& painter, const QRectF& place, KVLSessionState state);

// A sign whose shape and colour tell the state; the tool tip and the accessible name tell it in
// words.
class StateDot : public QWidget {
  Q_OBJECT

 public:
  // The host must outlive this.
  explicit StateDot(const Host& host, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void showState();

  const Host& host_;
};

}  // namespace qthost
