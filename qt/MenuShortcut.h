// The key equivalents of menu items.
#pragma once

#include <QKeySequence>
#include <string_view>

namespace kvl::qt {

// The key sequence of a key equivalent, which is one character, pressed together with Ctrl:
//
// - a letter stands for its key, an upper-case letter for its key together with Shift;
// - carriage return and line feed, tab, escape, space, backspace (U+0008) and delete (U+007F) stand
//   for the keys that type them, U+0003 for Enter and U+0019 for Tab together with Shift;
// - U+F700 to U+F735 stand for keys that type nothing: the arrows, F1 to F35, Insert, Delete, Home,
//   End, Page Up, Page Down, Print, Scroll Lock, Pause, SysReq and Menu;
// - any other printable character stands for itself.
//
// Anything else has no key sequence. Any thread.
[[nodiscard]] QKeySequence shortcutOf(std::string_view keyEquivalent);

}  // namespace kvl::qt
