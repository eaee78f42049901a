// Texts of others, made fit to be shown.
#pragma once

#include <QString>
#include <functional>
#include <string_view>

namespace kvl::qt {

// The longest text that is shown, in UTF-16 code units. What is longer ends with an ellipsis.
inline constexpr qsizetype kLongestText = 1000;

// One line: line feeds, tabs and other control characters are spaces. Cut before anything looks at
// all of it. Any thread.
[[nodiscard]] QString lineOf(std::string_view text);

// The same with its line feeds.
[[nodiscard]] QString linesOf(std::string_view text);

// `text` with a sign that is not seen wherever a word may be broken since it is longer than
// `longest` code units; none inside a character. `begins` tells where words begin. Whoever copies
// the text copies the signs, too.
[[nodiscard]] QString withBreaks(const QString& text, qsizetype longest,
                                 const std::function<bool(qsizetype index)>& begins);

// `text` as rich text that looks like it, wrapped at words, and within those of more than 60
// characters: so that nobody takes a "<" for mark-up.
[[nodiscard]] QString wrapped(const QString& text);

}  // namespace kvl::qt
