// Menus to be looked at: all that a menu can show, in one.
#pragma once

#include <local/platform/Menu.h>
#include <local/qt/MenuView.h>

#include <QImage>
#include <memory>

namespace kvltest {

enum class MenuLanguage { english, hebrew };

// Sections, second lines, badges, marks, keys, icons and a sub-menu, built from descriptions.
[[nodiscard]] std::shared_ptr<kvl::Menu> pictureMenu(MenuLanguage language = MenuLanguage::english);

// Until the view is on the screen with its icons. Throws std::runtime_error when it does not come.
void waitFor(kvl::qt::MenuView& view);

// Opens the view and its last sub-menu, with the row of that and one in it highlighted, and waits
// until both are there with their icons. Throws std::runtime_error when they do not come.
void openAll(kvl::qt::MenuView& view);

// The open view and its sub-menus as they are on the screen, on a plain ground.
[[nodiscard]] QImage pictureOf(kvl::qt::MenuView& view);

}  // namespace kvltest
