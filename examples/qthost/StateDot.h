// The state of the session at a glance.
#pragma once

#include <local/qt/SessionObject.h>

#include <QWidget>

class QPainter;

namespace qthost {

// Draws the sign of a state into `place`: a disc for established, a ring for connecting, half a
// disc in a ring for recovering, a cross for disconnected, in grey for ended.
void drawState(QPainter& painter, const QRectF& place, kvl::qt::SessionObject::State state);

// A sign whose shape and colour tell the state; the tool tip and the accessible name tell it in
// words.
class StateDot : public QWidget {
  Q_OBJECT

 public:
  // The host must outlive this.
  explicit StateDot(const kvl::qt::SessionObject& session, QWidget* parent = nullptr);

  [[nodiscard]] QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  void showState();

  const kvl::qt::SessionObject& session_;
};

}  // namespace qthost
