// A host with windows: shows what the service describes as menus, segments and forms, a document,
// and the service's events; and how the session is doing.
#include "examples/qthost/Console.h"
#include "examples/qthost/MainWindow.h"
#include "examples/qthost/Options.h"

#include <local/platform/HostApplication.h>
#include <local/qt/Integration.h>
#include <local/qt/SessionObject.h>

#include <QApplication>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  const qthost::Options options = qthost::readOptions(application);
  qthost::setLook(options);
  kvl::setHostIdentifier("korvale.vandrel.example.qthost");
  const kvl::qt::Integration integration;
  kvl::qt::SessionObject session;
  if (!options.events.isEmpty()) session.setEventSource(options.events);
  auto* window = new qthost::MainWindow(session, options);  // deletes itself when it is closed
  if (options.traces) new qthost::Console(session, *window);
  window->showInPanel();
  window->show();
  return QApplication::exec();
}
