#include "platform/formatting/RFC3339.h"

#include "platform/core/ASCII.h"
#include "platform/core/NoDestructor.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace kvl::formatting {
namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;
using std::chrono::year_month_day;

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::size_t kFractionDigits = 9;
constexpr int kLastYear = 9999;
// One more than the largest number in each place of a clock.
constexpr int kHourEnd = 24;
constexpr int kMinuteEnd = 60;
constexpr int kSecondEnd = 60;

constexpr sys_seconds kReferenceSecond = sys_days(year_month_day(std::chrono::year(2001) / 1 / 1));
constexpr sys_seconds kYear0 = sys_days(year_month_day(std::chrono::year(0) / 1 / 1));
constexpr sys_seconds kYear10000 =
    sys_days(year_month_day(std::chrono::year(kLastYear + 1) / 1 / 1));

// Whole seconds, and how many nanoseconds later: 0 to 999,999,999.
struct Instant {
  sys_seconds second;
  std::int64_t nanoseconds = 0;
};

// The nearest double, rounded once. Below the limit both operands of the division are exact. Beyond
// it the sum alone rounds: halfway points between the doubles there lie 2^-31 or further apart, and
// no multiple of 10^-9 comes so close to one that rounding it first could move it onto or across.
Date dateOf(const Instant& instant) {
  constexpr std::int64_t kExactSeconds = std::int64_t{1} << 22;
  const std::int64_t whole = (instant.second - kReferenceSecond).count();
  if (std::abs(whole) < kExactSeconds) {
    return Date(static_cast<double>(whole * kNanosecondsPerSecond + instant.nanoseconds) /
                static_cast<double>(kNanosecondsPerSecond));
  }
  return Date(static_cast<double>(whole) + static_cast<double>(instant.nanoseconds) /
                                               static_cast<double>(kNanosecondsPerSecond));
}

// Takes a text apart from its start; once something is missing, all that follows is.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  // Exactly so many ASCII digits; 0 when they are not there.
  int digits(std::size_t count) {
    int number = 0;
    if (rest_.size() < count) valid_ = false;
    for (std::size_t i = 0; valid_ && i < count; ++i) number = number * 10 + digit();
    return valid_ ? number : 0;
  }

  // One to nine digits after the point, in nanoseconds.
  std::int64_t fraction() {
    std::int64_t number = digits(1);
    for (std::size_t count = 1; count < kFractionDigits; ++count) {
      number = number * 10 + (startsWithDigit() ? digit() : 0);
    }
    return number;
  }

  void expect(char wanted) {
    if (!skip(wanted)) valid_ = false;
  }

  bool skip(char wanted) {
    const bool found = !rest_.empty() && rest_.front() == wanted;
    if (found) rest_.remove_prefix(1);
    return found;
  }

  void require(bool condition) { valid_ = valid_ && condition; }
  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  [[nodiscard]] bool valid() const { return valid_; }

 private:
  [[nodiscard]] bool startsWithDigit() const {
    return !rest_.empty() && ascii::isDigit(rest_.front());
  }

  int digit() {
    if (!startsWithDigit()) {
      valid_ = false;
      return 0;
    }
    const int value = rest_.front() - '0';
    rest_.remove_prefix(1);
    return value;
  }

  std::string_view rest_;
  bool valid_ = true;
};

sys_days scanDay(Scanner& scanner) {
  const std::chrono::year year(scanner.digits(4));
  scanner.expect('-');
  const std::chrono::month month(static_cast<unsigned>(scanner.digits(2)));
  scanner.expect('-');
  const year_month_day day(year, month, std::chrono::day(static_cast<unsigned>(scanner.digits(2))));
  scanner.require(day.ok());
  return scanner.valid() ? sys_days(day) : sys_days();
}

int scanBelow(Scanner& scanner, int limit) {
  const int number = scanner.digits(2);
  scanner.require(number < limit);
  return number;
}

seconds scanTime(Scanner& scanner) {
  const hours hour(scanBelow(scanner, kHourEnd));
  scanner.expect(':');
  const minutes minute(scanBelow(scanner, kMinuteEnd));
  scanner.expect(':');
  return hour + minute + seconds(scanBelow(scanner, kSecondEnd));
}

// How far the text's clock is ahead of UTC.
minutes scanOffset(Scanner& scanner) {
  if (scanner.skip('Z')) return minutes(0);
  const bool behind = scanner.skip('-');
  if (!behind) scanner.expect('+');
  minutes offset = hours(scanBelow(scanner, kHourEnd));
  if (!scanner.atEnd()) {
    scanner.skip(':');
    offset += minutes(scanBelow(scanner, kMinuteEnd));
  }
  return behind ? -offset : offset;
}

Instant wholeSecondsOf(Date date) {
  const double whole = std::floor(date.secondsSinceReferenceDate());
  return {kReferenceSecond + seconds(static_cast<std::int64_t>(whole)), 0};
}

// The digits of the shortest decimal number that reads back as `number`, cut toward zero to whole
// nanoseconds; `cut` tells whether that dropped any.
struct ShortestDecimal {
  std::int64_t whole = 0;
  std::int64_t nanoseconds = 0;
  bool cut = false;

  explicit ShortestDecimal(double number) {
    std::array<char, 400> text{};  // the smallest double has 324 places
    const char* const end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed).ptr;
    const char* const point = std::from_chars(text.data(), end, whole).ptr;
    if (point == end) return;
    std::string places(point + 1, end);
    cut = places.size() > kFractionDigits;
    places.resize(kFractionDigits, '0');
    std::from_chars(places.data(), places.data() + places.size(), nanoseconds);
  }
};

Instant nanosecondsOf(Date date) {
  const double number = date.secondsSinceReferenceDate();
  const ShortestDecimal decimal(std::fabs(number));
  if (number >= 0) return {kReferenceSecond + seconds(decimal.whole), decimal.nanoseconds};
  const std::int64_t before = decimal.nanoseconds + (decimal.cut ? 1 : 0);
  const auto second = kReferenceSecond - seconds(decimal.whole);
  if (before == 0) return {second, 0};
  return {second - seconds(1), kNanosecondsPerSecond - before};
}

void appendNumber(std::string& text, std::int64_t number, std::size_t width) {
  const auto start = text.size();
  text.append(width, '0');
  for (auto place = text.size(); number > 0 && place > start; number /= 10) {
    text[--place] = static_cast<char>('0' + number % 10);
  }
}

void appendDay(std::string& text, sys_days day) {
  const year_month_day date(day);
  appendNumber(text, static_cast<int>(date.year()), 4);
  text += '-';
  appendNumber(text, static_cast<unsigned>(date.month()), 2);
  text += '-';
  appendNumber(text, static_cast<unsigned>(date.day()), 2);
}

void appendTime(std::string& text, seconds time) {
  const std::chrono::hh_mm_ss parts(time);
  appendNumber(text, parts.hours().count(), 2);
  text += ':';
  appendNumber(text, parts.minutes().count(), 2);
  text += ':';
  appendNumber(text, parts.seconds().count(), 2);
}

std::string textFromDate(Date date, SecondFraction fraction) {
  static const Date first = dateOf({kYear0});
  static const Date end = dateOf({kYear10000});
  if (!(date >= first && date < end)) return {};
  const bool precise = fraction == SecondFraction::nanoseconds;
  const Instant instant = precise ? nanosecondsOf(date) : wholeSecondsOf(date);
  const auto day = std::chrono::floor<days>(instant.second);
  std::string text;
  appendDay(text, day);
  text += 'T';
  appendTime(text, instant.second - day);
  if (precise) {
    text += '.';
    appendNumber(text, instant.nanoseconds, kFractionDigits);
  }
  return text += 'Z';
}

std::optional<Date> dateFromText(std::string_view text, SecondFraction fraction) {
  Scanner scanner(text);
  const auto day = scanDay(scanner);
  scanner.expect('T');
  Instant instant{day + scanTime(scanner)};
  if (fraction == SecondFraction::nanoseconds) {
    scanner.expect('.');
    instant.nanoseconds = scanner.fraction();
  }
  instant.second -= scanOffset(scanner);
  scanner.require(scanner.atEnd());
  if (!scanner.valid()) return std::nullopt;
  return dateOf(instant);
}

class RFC3339Formatter final : public DateFormatter {
 public:
  explicit RFC3339Formatter(SecondFraction fraction) noexcept : fraction_(fraction) {}

  [[nodiscard]] std::string stringFromDate(Date date) const override {
    return textFromDate(date, fraction_);
  }
  [[nodiscard]] std::optional<Date> dateFromString(std::string_view text) const override {
    return dateFromText(text, fraction_);
  }

 private:
  const SecondFraction fraction_;
};

}  // namespace

const DateFormatter& rfc3339Formatter(SecondFraction fraction) {
  static const NoDestructor<RFC3339Formatter> whole(SecondFraction::none);
  static const NoDestructor<RFC3339Formatter> precise(SecondFraction::nanoseconds);
  return fraction == SecondFraction::nanoseconds ? *precise : *whole;
}

}  // namespace kvl::formatting

kvl::DateFormatter::~DateFormatter() = default;
