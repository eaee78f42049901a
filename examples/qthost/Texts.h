// Texts of others, made fit for widgets.
#pragma once

#include <QString>
#include <string_view>

namespace qthost {

// In UTF-16 code units.
inline constexpr qsizetype kLongestLine = 500;

// One line of at most `longest` code units, with an ellipsis for what is cut off. Line feeds, tabs
// and other control characters are blanks.
[[nodiscard]] QString lineOf(std::string_view text, qsizetype longest = kLongestLine);

// A text as it is, for a widget that takes "&" for the mark of a mnemonic.
[[nodiscard]] QString withoutMnemonic(QString text);

// What the user reads of a text with marks of mnemonics.
[[nodiscard]] QString readText(const QString& text);

}  // namespace qthost
