#include "examples/qthost/Options.h"

#include <QCommandLineParser>
#include <QCoreApplication>

namespace qthost {

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

}  // namespace qthost
