#include "examples/qthost/Outcome.h"

#include <local/qt/Conversions.h>

#include <QPalette>

namespace qthost {
namespace {

// Dark on light and light on dark.
QColor errorColor(const QPalette& palette) {
  const bool isDark = palette.color(QPalette::Window).lightness() < 128;
  return isDark ? QColor(0xff, 0x8a, 0x80) : QColor(0xb0, 0x1c, 0x1c);
}

}  // namespace

Outcome outcomeOf(const kvl::URLResponseRef& response, const std::optional<kvl::Error>& error) {
  const int status = response ? response->httpStatusCode.value_or(0) : 0;
  const bool isRefused = status >= 300;
  if (error && !isRefused) return {false, kvl::qt::qString(error->localizedDescription())};
  if (status == 0) return {true, {}};
  const QString reason = kvl::qt::qString(kvl::localizedStringForStatusCode(status));
  return {!isRefused, QStringLiteral("%1 %2").arg(QString::number(status), reason)};
}

Notice::Notice(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setWordWrap(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse);
  hide();
}

void Notice::showOutcome(const QString& text) {
  setPalette({});
  setText(text);
  const bool isAtRight = isRightToLeft() || text.isRightToLeft();
  setAlignment((isAtRight ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignAbsolute | Qt::AlignVCenter);
  setVisible(!text.isEmpty());
}

void Notice::showError(const QString& text) {
  showOutcome(text);
  QPalette colors;  // nothing of it counts but what is set here
  colors.setColor(QPalette::WindowText, errorColor(palette()));
  setPalette(colors);
}

}  // namespace qthost
