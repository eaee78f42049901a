#include "examples/qthost/Options.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QStyleFactory>

namespace qthost {
namespace {

constexpr QRgb kWindow = 0xff2d2d2d;
constexpr QRgb kBase = 0xff1e1e1e;
constexpr QRgb kText = 0xfff0f0f0;
constexpr QRgb kFaintText = 0xff808080;
constexpr QRgb kHighlight = 0xff2a6fc9;

}  // namespace

Options readOptions(const QCoreApplication& application) {
  Options options;
  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("Shows what the local service offers."));
  parser.addHelpOption();
  const QCommandLineOption events("events", "Source of the event stream", "SOURCE", options.events);
  const QCommandLineOption menu("menu", "Document with the menus", "PATH", options.menu);
  const QCommandLineOption document("document", "Document to show at first", "PATH",
                                    options.document);
  const QCommandLineOption dark("dark", "Light text on a dark ground");
  const QCommandLineOption rightToLeft("rtl", "Lay windows out from right to left");
  const QCommandLineOption trace("trace",
                                 "Tell on standard output what happens, and take commands "
                                 "from standard input (see Console.h)");
  parser.addOptions({events, menu, document, dark, rightToLeft, trace});
  parser.process(application);
  options.events = parser.value(events);
  options.menu = parser.value(menu);
  options.document = parser.value(document);
  options.isDark = parser.isSet(dark);
  options.isRightToLeft = parser.isSet(rightToLeft);
  options.traces = parser.isSet(trace);
  return options;
}

void setLook(const Options& options) {
  if (options.isRightToLeft) QApplication::setLayoutDirection(Qt::RightToLeft);
  if (!options.isDark) return;
  QApplication::setStyle(QStyleFactory::create("fusion"));
  QApplication::setPalette(darkPalette());
}

QPalette darkPalette() {
  QPalette palette{QColor(kWindow)};
  palette.setColor(QPalette::Base, QColor(kBase));
  palette.setColor(QPalette::AlternateBase, QColor(kBase).lighter(120));
  palette.setColor(QPalette::PlaceholderText, QColor(kFaintText));
  palette.setColor(QPalette::Highlight, QColor(kHighlight));
  palette.setColor(QPalette::HighlightedText, QColor(kText));
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(role, QColor(kText));
    palette.setColor(QPalette::Disabled, role, QColor(kFaintText));
  }
  return palette;
}

}  // namespace qthost
