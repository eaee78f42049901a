/// @file
/// Text in several fonts and colours.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvl {

/// The font of a piece of text. A toolkit binding maps it to an actual font.
enum class FontRole : std::uint8_t {
  menu,       ///< the menu font at its standard size
  menuSmall,  ///< the menu font at the size of small print
};

/// The colour of a piece of text. A toolkit binding maps it to an actual colour, which may depend
/// on the theme and on whether the item is highlighted.
enum class ColourRole : std::uint8_t {
  label,           ///< as text usually is
  secondaryLabel,  ///< less prominent
};

/// A piece of text in one font and one colour.
struct TextRun {
  std::string text;                       ///< UTF-8; line feeds begin lines
  FontRole font = FontRole::menu;         ///< size and kind of its letters
  ColourRole colour = ColourRole::label;  ///< its colour
  /// Equal text, font and colour.
  friend bool operator==(const TextRun&, const TextRun&) = default;
};

/// Pieces of text in order; a line feed begins a new line.
struct AttributedText {
  std::vector<TextRun> runs;  ///< in reading order

  /// The text alone.
  [[nodiscard]] std::string text() const {
    std::string text;
    for (const auto& run : runs) text += run.text;
    return text;
  }
  /// The same runs in the same order: one run cut in two is another text.
  friend bool operator==(const AttributedText&, const AttributedText&) = default;
};

}  // namespace kvl
