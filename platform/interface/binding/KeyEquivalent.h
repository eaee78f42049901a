// What the key equivalents of menu items stand for.
#pragma once

#include <optional>
#include <string_view>

namespace kvl::interface {

// A key of the keyboard, by what it does or by what it types.
struct Key {
  enum class Kind {
    character,  // a letter, digit or other sign
    function,   // F1, F2, ...
    backspace,
    backTab,  // Tab together with Shift
    deleteForward,
    down,
    end,
    enter,  // of the number pad
    escape,
    home,
    insert,
    left,
    menu,
    pageDown,
    pageUp,
    pause,
    print,
    returnKey,
    right,
    scrollLock,
    space,
    systemRequest,
    tab,
    up,
  };

  Kind kind = Kind::character;
  char32_t character = 0;  // of a `character`: an upper-case letter means Shift as well
  int number = 0;          // of a `function` key, from 1

  friend bool operator==(const Key&, const Key&) = default;
};

// The key of a key equivalent, which is one character; it is pressed together with the toolkit's
// usual modifier:
//
// - carriage return and line feed, tab, escape, space, backspace (U+0008) and delete (U+007F) stand
//   for the keys that type them, U+0003 for Enter and U+0019 for Tab together with Shift;
// - U+F700 to U+F735 stand for keys that type nothing: the arrows, F1 to F35, Insert, Delete, Home,
//   End, Page Up, Page Down, Print, Scroll Lock, Pause, SysReq and Menu;
// - any other character stands for itself. Whether keyboards have it is for the toolkit to say,
//   which knows the kinds of characters.
//
// None for what is not exactly one character. Any thread.
[[nodiscard]] std::optional<Key> keyOf(std::string_view keyEquivalent);

}  // namespace kvl::interface
