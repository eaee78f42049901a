// What the command line says.
#pragma once

#include <QString>

class QCoreApplication;

namespace qthost {

struct Options {
  QString events = QStringLiteral("/feed?interval=2000");
  QString menu = QStringLiteral("/desktop");
  QString document = QStringLiteral("/status");
  bool isDark = false;
  bool isRightToLeft = false;
  bool traces = false;
};

// Ends the program for --help and for what is wrong.
[[nodiscard]] Options readOptions(const QCoreApplication& application);

}  // namespace qthost
