// Numbers and escaped strings in JSON text.
#pragma once

#include "platform/core/ASCII.h"

#include <cstdint>
#include <limits>
#include <string_view>

namespace kvl::serialisation {

// Reads one number after the other. Texts must end with a character that is no part of a number.
class JSONNumberReader {
 public:
  enum class Result { integer, real, malformed, outOfRange };

  // Reads the number that begins at `begin`.
  Result read(const char* begin) noexcept {
    const bool negative = *begin == '-';
    const char* const digits = begin + (negative ? 1 : 0);
    std::uint64_t magnitude = 0;
    const char* next = digits;
    for (; ascii::isDigit(*next); ++next)
      magnitude = magnitude * 10 + static_cast<std::uint64_t>(*next - '0');
    const auto count = next - digits;
    if (count == 0 || (*digits == '0' && count > 1)) return Result::malformed;
    if (*next == '.' || *next == 'e' || *next == 'E' || count > kSafeDigits)
      return readReal(begin, next);
    if (magnitude > kLargest + (negative ? 1 : 0)) return readReal(begin, next);
    end_ = next;
    integer_ = static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
    return Result::integer;
  }

  // @name What was read last
  // @{
  [[nodiscard]] std::int64_t integer() const noexcept { return integer_; }
  [[nodiscard]] double real() const noexcept { return real_; }
  // Behind the number's last character.
  [[nodiscard]] const char* end() const noexcept { return end_; }
  // @}

 private:
  // So many digits never exceed 64 bits.
  static constexpr int kSafeDigits = 19;
  static constexpr auto kLargest =
      static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

  // The rest of a number whose integer part ends at `next`.
  Result readReal(const char* begin, const char* next) noexcept;

  std::int64_t integer_ = 0;
  double real_ = 0;
  const char* end_ = nullptr;
};

// Writes what stands between the quotes of a string, without its escapes: never more than that.
// Returns the end of what it has written, or null for a malformed escape, and for half of a
// surrogate pair.
[[nodiscard]] char* writeUnescaped(char* out, std::string_view escaped) noexcept;

}  // namespace kvl::serialisation
