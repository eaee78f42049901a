/// @file
/// Texts of others on a terminal or in a log: what would steer, turn round or hide what is shown
/// there.
#pragma once

#include <local/platform/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kvl {

/// The length in bytes of the well-formed character of UTF-8 (RFC 3629) that `text` begins with, or
/// 0. Any thread.
[[nodiscard]] KVL_EXPORT std::size_t characterLength(std::string_view text) noexcept;

/// The code point of one well-formed character. Any thread.
/// @pre `characterLength(character) == character.size()`, and that is not 0
[[nodiscard]] KVL_EXPORT char32_t codePoint(std::string_view character) noexcept;

/// Whether a character does something to a terminal, or to the text around it, instead of showing.
/// Any thread. It is one of
/// - the control characters (category Cc: U+0000 to U+001F, U+007F to U+009F) and the line and
///   paragraph separators (U+2028, U+2029);
/// - what sets the direction of text: the marks (U+061C, U+200E, U+200F), embeddings and overrides
///   (U+202A to U+202E), isolates (U+2066 to U+2069);
/// - the other characters of category Cf that never show: soft hyphens (U+00AD), U+180E, zero-width
///   spaces (U+200B, U+FEFF), U+2060 to U+2064, U+206A to U+206F, the annotation characters (U+FFF9
///   to U+FFFB), those of shorthand and music (U+1BCA0 to U+1BCA3, U+1D173 to U+1D17A) and tags
///   (U+E0001, U+E0020 to U+E007F).
///
/// The two joiners (U+200C, U+200D), without which some languages and many emoji cannot be written,
/// and the characters of Cf that do show are no such characters.
[[nodiscard]] KVL_EXPORT bool isUnprintable(char32_t codePoint) noexcept;

/// `text` as one line that a terminal and the system log can be given: line feed, carriage return
/// and tab become `\n`, `\r` and `\t`, other unprintable characters of ASCII and each byte of what
/// is not UTF-8 `\xNN`, other unprintable characters `\u{N…}` with their code point in hexadecimal
/// digits. All else stays as it is, backslashes too: the result is to be read, not to be turned
/// back. Any thread.
[[nodiscard]] KVL_EXPORT std::string printable(std::string_view text);

}  // namespace kvl
