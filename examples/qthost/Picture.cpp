#include "examples/qthost/Picture.h"

#include <QApplication>
#include <QList>
#include <QPainter>
#include <QWidget>

namespace qthost {
namespace {

bool belongsTo(const QWidget* widget, const QWidget& window) {
  for (; widget != nullptr; widget = widget->parentWidget())
    if (widget == &window) return true;
  return false;
}

// The window comes first, dialogs next, menus last.
constexpr int kLayers = 3;

int layerOf(const QWidget* widget, const QWidget& window) {
  if (widget == &window) return 0;
  return widget->windowType() == Qt::Popup ? 2 : 1;
}

QList<QWidget*> shownWith(const QWidget& window) {
  QList<QWidget*> shown;
  for (int layer = 0; layer < kLayers; ++layer) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      const bool isShown = widget->isVisible() && belongsTo(widget, window);
      if (isShown && layerOf(widget, window) == layer) shown.append(widget);
    }
  }
  return shown;
}

}  // namespace

QPixmap pictureOf(QWidget& window) {
  const QList<QWidget*> shown = shownWith(window);
  QRect place = window.frameGeometry();
  for (const QWidget* widget : shown) place |= widget->frameGeometry();
  const qreal scale = window.devicePixelRatioF();
  QPixmap picture(place.size() * scale);
  picture.setDevicePixelRatio(scale);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setPen(window.palette().color(QPalette::Dark));
  for (QWidget* widget : shown) {
    const QRect at = widget->frameGeometry().translated(-place.topLeft());
    painter.drawPixmap(at.topLeft(), widget->grab());
    // Without a window manager nothing else tells a dialog from what is below.
    if (layerOf(widget, window) == 1) painter.drawRect(at.adjusted(0, 0, -1, -1));
  }
  return picture;
}

}  // namespace qthost
