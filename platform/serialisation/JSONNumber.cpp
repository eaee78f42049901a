#include "platform/serialisation/JSONNumber.h"

#include <algorithm>
#include <charconv>

namespace kvl::serialisation {
namespace {

const char* skipDigits(const char* next) noexcept {
  while (ascii::isDigit(*next)) ++next;
  return next;
}

// Whether the number at `begin`, of which `exponent` is the part behind the `e`, is smaller than 1.
// It is known to be no real, so that it is much smaller or much larger.
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
  if (std::from_chars(begin, next, real_).ec == std::errc()) return Result::real;
  if (!isSmall(begin, next)) return Result::outOfRange;
  real_ = *begin == '-' ? -0.0 : 0.0;
  return Result::real;
}

}  // namespace kvl::serialisation
