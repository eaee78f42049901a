// What Qt needs of views that outlive the application.
#pragma once

#include <QCoreApplication>
#include <QWidget>

namespace kvl::qt {

// To be called in the destructor of a view. Qt asks the application about widgets that are still on
// the screen when they are destroyed, even where there is none any more: then nothing in `view` is
// on the screen.
inline void markHiddenWithoutApplication(QWidget& view) {
  if (QCoreApplication::instance() != nullptr) return;
  // To hide them would need the application as well.
  auto widgets = view.findChildren<QWidget*>();
  widgets.append(&view);
  for (auto* widget : widgets) widget->setAttribute(Qt::WA_WState_Visible, false);
}

}  // namespace kvl::qt
