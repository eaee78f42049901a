#include "Notes.h"

#include <QApplication>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  kvl::setHostIdentifier("org.example.Notes");
  const kvl::qt::Integration integration;
  notes::Window window;
  window.show();
  return QApplication::exec();
}
