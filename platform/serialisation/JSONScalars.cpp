#include "platform/serialisation/JSONScalars.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <optional>

#ifndef __cpp_lib_to_chars
#include <glib.h>
#endif

namespace kvl::serialisation {
namespace {

constexpr std::size_t kHexDigits = 4;

const char* skipDigits(const char* next) noexcept {
  while (ascii::isDigit(*next)) ++next;
  return next;
}

// Whether the number at `begin`, of which `exponent` is the part behind the `e`, is smaller than 1.
// No double can hold it, so it is either tiny or huge.
bool isSmall(const char* begin, const char* end) noexcept {
  const char* const exponent =
      std::find_if(begin, end, [](char c) { return c == 'e' || c == 'E'; });
  const char* const point = std::find(begin, exponent, '.');
  const char* const leading = std::find_if(begin, exponent, [](char c) { return c > '0'; });
  std::int64_t magnitude = point - leading;
  if (exponent == end) return magnitude < 0;
  const char* const digits = exponent + (exponent[1] == '+' ? 2 : 1);
  std::int64_t shift = 0;
  if (std::from_chars(digits, end, shift).ec != std::errc()) return *digits == '-';
  return shift < -magnitude;
}

// Reads a well-formed number. False, with `real` undetermined, when no double can hold it.
#ifdef __cpp_lib_to_chars
bool fitsReal(const char* begin, const char* end, double& real) noexcept {
  return std::from_chars(begin, end, real).ec == std::errc();
}
#else
bool fitsReal(const char* begin, const char* /*end*/, double& real) noexcept {
  errno = 0;
  real = g_ascii_strtod(begin, nullptr);
  return errno != ERANGE || (real != 0 && std::isfinite(real));
}
#endif

// The character that a letter behind a backslash stands for, else NUL.
char plainEscape(char letter) noexcept {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view characters = "\"\\/\b\f\n\r\t";
  const std::size_t position = letters.find(letter);
  return position < letters.size() ? characters[position] : '\0';
}

// The number behind `\u` at the front of `text`, which is taken off.
std::optional<char32_t> takeCodeUnit(std::string_view& text) noexcept {
  if (text.size() < 2 + kHexDigits || !text.starts_with("\\u")) return std::nullopt;
  const std::string_view digits = text.substr(2, kHexDigits);
  std::uint16_t unit = 0;
  const auto result = std::from_chars(digits.begin(), digits.end(), unit, 16);
  if (result.ec != std::errc() || result.ptr != digits.end()) return std::nullopt;
  text.remove_prefix(2 + kHexDigits);
  return unit;
}

std::optional<char32_t> takeCodePoint(std::string_view& text) noexcept {
  const auto unit = takeCodeUnit(text);
  if (!unit || *unit < 0xD800 || *unit > 0xDFFF) return unit;
  if (*unit >= 0xDC00) return std::nullopt;
  const auto low = takeCodeUnit(text);
  if (!low || *low < 0xDC00 || *low > 0xDFFF) return std::nullopt;
  return 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
}

char* writeUTF8(char* out, char32_t point) noexcept {
  const auto trail = [point](int shift) {
    return static_cast<char>(0x80 | (point >> shift & 0x3F));
  };
  if (point < 0x80) {
    *out++ = static_cast<char>(point);
  } else if (point < 0x800) {
    *out++ = static_cast<char>(0xC0 | point >> 6);
    *out++ = trail(0);
  } else if (point < 0x10000) {
    *out++ = static_cast<char>(0xE0 | point >> 12);
    *out++ = trail(6);
    *out++ = trail(0);
  } else {
    *out++ = static_cast<char>(0xF0 | point >> 18);
    *out++ = trail(12);
    *out++ = trail(6);
    *out++ = trail(0);
  }
  return out;
}

// Writes what the escape at the front of `escaped` stands for, and takes it off.
char* writeEscape(char* out, std::string_view& escaped) noexcept {
  if (escaped.size() < 2) return nullptr;
  if (escaped[1] == 'u') {
    const auto point = takeCodePoint(escaped);
    return point ? writeUTF8(out, *point) : nullptr;
  }
  const char character = plainEscape(escaped[1]);
  if (character == '\0') return nullptr;
  escaped.remove_prefix(2);
  *out = character;
  return out + 1;
}

}  // namespace

JSONNumberReader::Result JSONNumberReader::readReal(const char* begin, const char* next) noexcept {
  if (*next == '.') {
    const char* const fraction = next + 1;
    next = skipDigits(fraction);
    if (next == fraction) return Result::malformed;
  }
  if (*next == 'e' || *next == 'E') {
    ++next;
    if (*next == '+' || *next == '-') ++next;
    const char* const exponent = next;
    next = skipDigits(exponent);
    if (next == exponent) return Result::malformed;
  }
  end_ = next;
  if (fitsReal(begin, next, real_)) return Result::real;
  if (!isSmall(begin, next)) return Result::outOfRange;
  real_ = *begin == '-' ? -0.0 : 0.0;
  return Result::real;
}

char* writeUnescaped(char* out, std::string_view escaped) noexcept {
  while (out != nullptr) {
    const std::size_t plain = std::min(escaped.find('\\'), escaped.size());
    out = std::copy_n(escaped.begin(), plain, out);
    escaped.remove_prefix(plain);
    if (escaped.empty()) return out;
    out = writeEscape(out, escaped);
  }
  return nullptr;
}

}  // namespace kvl::serialisation
