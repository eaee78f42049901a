#include "examples/qthost/Console.h"

#include "examples/qthost/DocumentView.h"
#include "examples/qthost/MainWindow.h"
#include "examples/qthost/Texts.h"

#include <local/qt/Conversions.h>
#include <local/qt/FormDialog.h>
#include <local/qt/MenuView.h>

#include <unistd.h>

#include <QApplication>
#include <QList>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QSocketNotifier>
#include <QTimer>
#include <QWidget>
#include <array>
#include <chrono>
#include <iostream>

namespace qthost {

using kvl::qt::SessionObject;

namespace {

// Icons are still on their way when a menu opens.
constexpr std::chrono::milliseconds kPictureDelay{300};

void say(const QString& what, const QString& text) {
  std::cout << kvl::qt::utf8(what) << ": " << kvl::qt::utf8(text) << std::endl;
}

QString orNull(const QString& text) {
  return text.isNull() ? QStringLiteral("(null)") : text;
}

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

Console::Console(SessionObject& session, MainWindow& window) : QObject(&window), window_(window) {
  connect(&session, &SessionObject::stateChanged, this,
          [&session] { say("state", session.stateText()); });
  connect(&session, &SessionObject::eventsReceived, this, &Console::tellEvents);
  connect(&window, &MainWindow::menusShown, this,
          [](const QStringList& titles) { say("menus", titles.join(", ")); });
  connect(&window, &MainWindow::submitted, this, [](const QString& title, const QString& outcome) {
    say("submitted", title + ": " + outcome);
  });
  connect(
      window.documentView(), &DocumentView::shown, this,
      [](const QString& path, const QString& outcome) { say("document", path + ": " + outcome); });
  auto* input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
  connect(input, &QSocketNotifier::activated, this, &Console::read);
}

void Console::read() {
  std::array<char, 4096> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count <= 0) return QApplication::closeAllWindows();
  input_.append(bytes.data(), count);
  for (qsizetype end = input_.indexOf('\n'); end >= 0; end = input_.indexOf('\n')) {
    const QString line = QString::fromUtf8(input_.left(end));
    input_.remove(0, end + 1);
    obey(line.section(' ', 0, 0), line.section(' ', 1));
  }
}

void Console::obey(const QString& command, const QString& argument) {
  if (command == "activate") activate(argument);
  if (command == "open") openMenu(argument.toInt());
  if (command == "dismiss") dismiss();
  if (command == "submit") submit();
  if (command == "fetch") window_.documentView()->fetch(argument);
  if (command == "picture")
    QTimer::singleShot(kPictureDelay, this, [this, argument] { savePicture(argument); });
}

void Console::activate(const QString& identifier) {
  for (const auto* view : window_.findChildren<kvl::qt::MenuView*>()) {
    for (QAction* action : view->actions()) {
      const auto item = view->itemOf(action);
      const bool isMeant = item && item->identifier() == kvl::qt::utf8(identifier);
      if (isMeant && action->isEnabled()) return action->trigger();
    }
  }
  say("failed", "activate " + identifier);
}

void Console::openMenu(int index) {
  QMenuBar* bar = window_.menuBar();
  QAction* action = bar->actions().value(index);
  const QMenu* menu = action != nullptr ? action->menu() : nullptr;
  if (menu != nullptr) bar->setActiveAction(action);
  if (menu == nullptr || !menu->isVisible())
    return say("failed", QStringLiteral("open %1").arg(index));
  say("opened", readText(action->text()));
}

void Console::dismiss() {
  QWidget* menu = QApplication::activePopupWidget();
  QWidget* shown = menu != nullptr ? menu : QApplication::activeModalWidget();
  if (shown != nullptr) shown->close();
}

void Console::submit() {
  if (auto* dialog = window_.findChild<kvl::qt::FormDialog*>()) dialog->submit();
}

void Console::savePicture(const QString& file) {
  say("picture", pictureOf(window_).save(file) ? file : "failed");
}

void Console::tellEvents(const QList<kvl::qt::Event>& events) {
  for (const auto& event : events)
    say("event", QStringLiteral("%1, id %2, data %3")
                     .arg(orNull(event.name), orNull(event.identifier), orNull(event.data)));
}

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
