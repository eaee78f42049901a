// What the command line says, and the look that it asks for.
#pragma once

#include <QPalette>
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

// Direction and colours of all windows. Before the first of them.
void setLook(const Options& options);

// Light text on a dark ground.
[[nodiscard]] QPalette darkPalette();

}  // namespace qthost
