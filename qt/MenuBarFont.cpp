#include "qt/MenuBarFont.h"

#include "qt/PlainText.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QThread>

namespace kvl::qt {

MenuBarTextMeasurement::MenuBarTextMeasurement() : gui_(QThread::currentThread()) {
  update();
}

Size MenuBarTextMeasurement::menuBarTextSize(std::string_view text) {
  const QString line = lineOf(text);
  if (QThread::currentThread() == gui_) update();
  const std::lock_guard lock(mutex_);
  if (ended_) return {};
  const QFontMetricsF metrics(font_);
  return {metrics.horizontalAdvance(line), metrics.height()};
}

void MenuBarTextMeasurement::update() {
  const std::lock_guard lock(mutex_);
  if (!ended_) font_ = QApplication::font("QMenuBar");
}

void MenuBarTextMeasurement::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
}

MenuBarFont::MenuBarFont() {
  // Queued, since the fonts of kinds of widgets change after that of the application. What would
  // replace the signal are events, which only filters of all events see.
  QT_WARNING_PUSH
  QT_WARNING_DISABLE_DEPRECATED
  connect(
      qApp, &QGuiApplication::fontChanged, this,
      [measurement = measurement_] { measurement->update(); }, Qt::QueuedConnection);
  QT_WARNING_POP
}

MenuBarFont::~MenuBarFont() {
  measurement_->end();
}

}  // namespace kvl::qt
