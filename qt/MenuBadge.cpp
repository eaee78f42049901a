#include "qt/MenuBadge.h"

#include "qt/PlainText.h"

#include <local/platform/UpdateCount.h>

#include <QLocale>
#include <string>

namespace kvl::qt {
namespace {

// With the script, if that is not the usual one of the language.
QString nameOf(const QLocale& locale) {
  constexpr qsizetype kScript = 4;  // letters
  const auto tag = locale.bcp47Name();
  return tag.section(QLatin1Char('-'), 1, 1).size() == kScript ? tag : locale.name();
}

// Empty for the language of the user's messages.
std::string localeOfHost() {
  const QLocale locale;
  return locale == QLocale::system() ? std::string() : nameOf(locale).toStdString();
}

}  // namespace

QString badgeWords(const MenuItemBadge& badge) {
  return lineOf(localizedUpdateCount(badge.updates, localeOfHost()));
}

}  // namespace kvl::qt
