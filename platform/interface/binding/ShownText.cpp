#include "platform/interface/binding/ShownText.h"

#include "platform/interface/binding/Characters.h"

#include <algorithm>

namespace kvl::interface {
namespace {

constexpr std::string_view kEllipsis = "\xE2\x80\xA6";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

constexpr int unitsOf(char32_t character) {
  return character > 0xffff ? 2 : 1;
}

bool isLineBreak(char32_t character) {
  constexpr char32_t kLineSeparator = 0x2028;
  constexpr char32_t kParagraphSeparator = 0x2029;
  return character == '\n' || character == kLineSeparator || character == kParagraphSeparator;
}

bool isControl(char32_t character) {
  return character < 0x20 || (character >= 0x7f && character < 0xa0);
}

std::string shown(std::string_view text, char lineBreak) {
  std::string result;
  result.reserve(std::min(text.size(), std::size_t{kLongestShownText}));
  // Toolkits drop it as they take the text over, so it does not count.
  if (text.starts_with(kByteOrderMark)) {
    result = kByteOrderMark;
    text.remove_prefix(kByteOrderMark.size());
  }
  int units = 0;
  std::size_t end = result.size();  // of what is kept in front of an ellipsis
  for (Character next; !text.empty(); text.remove_prefix(next.bytes)) {
    next = firstCharacter(text);
    units += unitsOf(next.value);
    if (units > kLongestShownText) {
      result.resize(end);
      return result.append(kEllipsis);
    }
    if (isLineBreak(next.value))
      result += lineBreak;
    else if (isControl(next.value))
      result += ' ';
    else
      result += next.value == kReplacementCharacter ? kReplacement : text.substr(0, next.bytes);
    if (units < kLongestShownText) end = result.size();
  }
  return result;
}

}  // namespace

std::string shownLine(std::string_view text) {
  return shown(text, ' ');
}

std::string shownLines(std::string_view text) {
  return shown(text, '\n');
}

}  // namespace kvl::interface
