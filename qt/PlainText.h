// Texts from outside as Qt shows them.
#pragma once

#include "platform/interface/binding/ShownText.h"

#include <QString>
#include <functional>
#include <string_view>

namespace kvl::qt {

// The longest text that is shown, in UTF-16 code units. What is longer ends with an ellipsis.
inline constexpr qsizetype kLongestText = interface::kLongestShownText;

// One line: line feeds, tabs and other control characters are spaces. Any thread.
[[nodiscard]] QString lineOf(std::string_view text);

// The same with its line feeds.
[[nodiscard]] QString linesOf(std::string_view text);

// The text itself if it has at most `longest` code units, else its beginning and an ellipsis.
[[nodiscard]] QString shortened(const QString& text, qsizetype longest);

// A text as it is, for a widget that takes "&" for the mark of a mnemonic.
[[nodiscard]] QString escaped(QString text);

// The text of an action or the title of a menu as it is read, without its mnemonic.
[[nodiscard]] QString withoutMnemonic(const QString& text);

// `text` with an invisible character (U+200B) wherever a word may be broken since it is longer than
// `longest` code units; none inside a character. `begins` tells where words begin. Whoever copies
// the text copies the invisible characters, too.
[[nodiscard]] QString withBreaks(const QString& text, qsizetype longest,
                                 const std::function<bool(qsizetype index)>& begins);

// `text` as rich text that looks like it, wrapped at words, and within those of more than 60
// characters: so that nobody takes a "<" for mark-up.
[[nodiscard]] QString wrapped(const QString& text);

}  // namespace kvl::qt
