#include "qt/WidgetEnd.h"

#include <QCoreApplication>
#include <QWidget>

namespace kvl::qt {

void prepareToEnd(QWidget& view) {
  if (QCoreApplication::instance() != nullptr) return;
  // To hide them would need the application as well.
  auto widgets = view.findChildren<QWidget*>();
  widgets.append(&view);
  for (auto* widget : widgets) widget->setAttribute(Qt::WA_WState_Visible, false);
}

}  // namespace kvl::qt
