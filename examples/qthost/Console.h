// The host as a script sees it.
#pragma once

#include <local/qt/SessionObject.h>

#include <QByteArray>
#include <QObject>
#include <QPixmap>
#include <QString>

class QWidget;

namespace qthost {

class MainWindow;

// Tells on standard output what the window shows, and does what lines of standard input say:
//
//   activate IDENTIFIER   chooses an item of the menus
//   open NUMBER           opens that menu of the menu bar, from 0
//   dismiss               closes the menu, or else the form
//   submit                submits the form that is open
//   fetch PATH            shows that document
//   picture FILE          writes what the user sees, as PNG
//
// What cannot be done is told as "failed". The end of the input closes the windows.
class Console : public QObject {
  Q_OBJECT

 public:
  // Goes away with the window. The session must outlive this.
  Console(kvl::qt::SessionObject& session, MainWindow& window);

 private:
  void read();
  void obey(const QString& command, const QString& argument);
  void activate(const QString& identifier);
  void openMenu(int index);
  void dismiss();
  void submit();
  void savePicture(const QString& file);
  void tellEvents(const QList<kvl::qt::Event>& events);

  MainWindow& window_;
  QByteArray input_;
};

// The window with the dialogs and menus that it has open, each where it is on the screen. Whatever
// else is on the screen is not in the picture. GUI thread.
[[nodiscard]] QPixmap pictureOf(QWidget& window);

}  // namespace qthost
