#include "examples/qthost/BarMenus.h"

#include "examples/qthost/Texts.h"

#include <QCoreApplication>
#include <algorithm>

namespace qthost {
namespace {

// The title with "&" before its first letter that is not taken, which then is.
QString withMnemonic(const QString& title, QString& taken) {
  QString result;
  bool isFound = false;
  for (const QChar letter : title) {
    const bool isMnemonic = !isFound && letter.isLetter() && !taken.contains(letter.toLower());
    if (isMnemonic) taken += letter.toLower();
    if (isMnemonic || letter == u'&') result += u'&';
    isFound = isFound || isMnemonic;
    result += letter;
  }
  return result;
}

bool hasSubmenu(const std::shared_ptr<kvl::MenuItem>& item) {
  return item->submenu() != nullptr;
}

}  // namespace

std::vector<BarMenu> barMenus(const std::shared_ptr<kvl::Menu>& menu, QString taken) {
  const auto items = menu->items();
  if (items.empty()) return {};
  if (!std::ranges::all_of(items, hasSubmenu))
    return {{withMnemonic(QCoreApplication::translate("BarMenus", "Service"), taken), menu}};
  std::vector<BarMenu> menus;
  for (const auto& item : items)
    menus.push_back({withMnemonic(lineOf(item->title()), taken), item->submenu()});
  return menus;
}

}  // namespace qthost
