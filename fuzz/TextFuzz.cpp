// Any text, made fit for a log, a terminal, a menu or a line of JSON: what comes out is UTF-8,
// holds nothing that steers a terminal, and what may stay stays.
#include "fuzz/Choices.h"
#include "platform/core/UTF8.h"
#include "platform/interface/binding/KeyEquivalent.h"
#include "platform/interface/binding/ShownText.h"
#include "platform/serialisation/JSONReader.h"
#include "tools/kvlocal/Text.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <glib.h>

#include <algorithm>
#include <memory>
#include <string>

namespace {

using kvl::fuzz::require;

// GLib's own reading, which takes a NUL for the end.
bool isUTF8Elsewhere(std::string text) {
  std::ranges::replace(text, '\0', 'x');
  return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE;
}

std::string replaced(std::string text, std::string_view part, std::string_view other) {
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + other.size()))
    text.replace(at, part.size(), other);
  return text;
}

bool isPrintable(std::string_view text) {
  while (!text.empty()) {
    const auto length = kvl::characterLength(text);
    if (length == 0 || kvl::isUnprintable(kvl::codePoint(text.substr(0, length)))) return false;
    text.remove_prefix(length);
  }
  return true;
}

// What `printf %b` makes of a text.
std::string unescaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto backslash = std::min(text.find('\\'), text.size());
    result += text.substr(0, backslash);
    text.remove_prefix(backslash);
    if (text.empty()) break;
    require(text.size() >= 2, "a backslash begins an escape");
    const auto letter = text[1];
    const std::size_t digits = letter == '0' ? 3 : 0;
    constexpr std::string_view kLetters = "\\tnr0";
    const auto kind = kLetters.find(letter);
    require(kind != std::string_view::npos && text.size() >= 2 + digits, "an escape is known");
    result += digits > 0 ? static_cast<char>(std::stoi(std::string(text.substr(2, 3)), nullptr, 8))
                         : "\\\t\n\r"[kind];
    text.remove_prefix(2 + digits);
  }
  return result;
}

void checkCharacters(const std::string& text) {
  const bool isUTF8 = isUTF8Elsewhere(text);
  require(kvl::core::isUTF8(text) == isUTF8, "both take the same for UTF-8");
  const auto valid = kvl::validUTF8(text);
  require(isUTF8Elsewhere(valid), "what is made valid is UTF-8");
  const std::unique_ptr<char, decltype(&g_free)> elsewhere(
      g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
  require(text.find('\0') != std::string::npos || valid == elsewhere.get(),
          "both make the same of it");
  const auto length = kvl::characterLength(text);
  require(length == 0 || isUTF8Elsewhere(text.substr(0, length)), "a character is UTF-8");
  if (length == 0 || text.front() == '\0') return;
  require(kvl::codePoint(std::string_view(text).substr(0, length)) ==
              g_utf8_get_char_validated(text.data(), static_cast<gssize>(length)),
          "both read the same character");
}

void checkPrintable(const std::string& text) {
  const auto printed = kvl::printable(text);
  require(isPrintable(printed), "what is printed is printable");
  require((printed == text) == isPrintable(text), "exactly what is printable stays as it is");
  require(kvl::printable(printed) == printed, "what is printed stays as it is");
  const auto escaped = kvlocal::escaped(text);
  require(isPrintable(escaped), "what is escaped is printable");
  require(unescaped(escaped) == text, "what is escaped can be turned back");
}

void checkJSONText(const std::string& text) {
  const auto json = kvl::jsonText(kvl::Array{text});
  require(isPrintable(json), "JSON text is printable");
  const auto read = kvl::valueFromJSON(kvl::Data::fromText(json), nullptr);
  const auto array = read ? read->array() : std::nullopt;
  require(array && array->size() == 1 && (*array)[0].string().has_value(), "JSON text is JSON");
  require(!isUTF8Elsewhere(text) || (*array)[0].string() == text, "JSON text reads back");
}

std::size_t unitsOf(const std::string& text) {
  glong units = 0;
  const std::unique_ptr<gunichar2, decltype(&g_free)> owner(
      g_utf8_to_utf16(text.data(), static_cast<glong>(text.size()), nullptr, &units, nullptr),
      g_free);
  return static_cast<std::size_t>(units);
}

void checkShown(const std::string& text) {
  const auto line = kvl::interface::shownLine(text);
  const auto lines = kvl::interface::shownLines(text);
  require(isUTF8Elsewhere(line) && isUTF8Elsewhere(lines), "what is shown is UTF-8");
  require(replaced(lines, "\n", " ") == line, "lines differ in their line ends only");
  require(std::ranges::none_of(line, [](char c) { return c >= 0 && (c < ' ' || c == '\x7f'); }),
          "no control characters are shown");
  // A mark of the byte order is dropped later on.
  const auto longest = static_cast<std::size_t>(kvl::interface::kLongestShownText) +
                       (line.starts_with("\xEF\xBB\xBF") ? 1 : 0);
  require(unitsOf(line) <= longest, "nothing is shown that is too long");
  require(kvl::interface::shownLine(line) == line, "what is shown stays as it is");
  if (isPrintable(text) && unitsOf(text) <= longest) require(line == text, "what may stay stays");
}

void checkWrapped(const std::string& text, std::size_t width) {
  const auto wrapped = kvlocal::wrapped(text, width);
  std::string_view rest = wrapped;
  while (!rest.empty()) {
    const auto line = rest.substr(0, rest.find('\n'));
    require(kvlocal::columnsOf(line) <= width, "no line is too wide");
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
  const auto dense = [](std::string words) {
    std::erase_if(words, [](char c) { return c == ' ' || c == '\n'; });
    return words;
  };
  require(dense(wrapped) == dense(text), "all words are there");
}

void checkKey(const std::string& text) {
  const auto key = kvl::interface::keyOf(text);
  if (!key) return;
  require(isUTF8Elsewhere(text), "a key is a character");
  const auto character = std::string_view(text).substr(text.starts_with("\xEF\xBB\xBF") ? 3 : 0);
  require(key->kind != kvl::interface::Key::Kind::character ||
              key->character == kvl::codePoint(character),
          "a character stands for itself");
}

// The first byte is a width.
void checkText(kvl::fuzz::Input input) {
  kvl::fuzz::Choices choices(input);
  const std::size_t width = 9 + choices.below(90);
  const std::string text(choices.rest());
  checkCharacters(text);
  checkPrintable(text);
  checkJSONText(text);
  checkShown(text);
  checkWrapped(text, width);
  checkKey(text);
  const auto received = kvlocal::receivingText(text);
  require(isPrintable(received), "what a service says of its answer is printable");
}

const kvl::fuzz::Target texts("text", checkText);

}  // namespace
