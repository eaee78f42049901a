// What a menu shows of one item, in Qt's terms.
#pragma once

#include <local/platform/MenuItem.h>

#include <QKeySequence>
#include <QString>
#include <memory>
#include <string_view>

namespace kvl::qt {

struct MenuEntry {
  MenuItem::Kind kind = MenuItem::Kind::item;
  QString title;      // one line without control characters; nothing is escaped
  QString subtitle;   // likewise; empty for none
  QString badge;      // in words, in the user's language; empty for none
  QString shortcut;   // in the words of the desktop; empty for none
  QKeySequence keys;  // what the shortcut is
  QString toolTip;    // plain text; empty for none
  MenuItem::State state = MenuItem::State::off;
  bool enabled = true;
  bool hasSubmenu = false;
  bool smallTitle = false;   // the title is set in small print
  bool expectsIcon = false;  // there is an image or there may be one later
  std::shared_ptr<Image> image;

  friend bool operator==(const MenuEntry&, const MenuEntry&) = default;
};

// What the item is like at this moment.
[[nodiscard]] MenuEntry entryOf(const MenuItem& item);

// The key sequence of a key equivalent (see `interface::keyOf`), together with Ctrl. A letter
// stands for its key, an upper-case letter for its key together with Shift. Empty for what is on no
// keyboard. Any thread.
[[nodiscard]] QKeySequence shortcutOf(std::string_view keyEquivalent);

// The columns that all entries of one menu share.
struct MenuColumns {
  bool marks = false;     // some entry has a mark, or one of this menu has had one
  bool icons = false;     // some entry expects an icon
  int shortcutWidth = 0;  // what a menu adds for the widest text, in device-independent pixels
  friend bool operator==(const MenuColumns&, const MenuColumns&) = default;
};

}  // namespace kvl::qt
