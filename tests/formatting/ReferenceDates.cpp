#include "tests/formatting/ReferenceDates.h"

#include <array>
#include <cstdlib>
#include <sstream>
#include <string>

namespace kvltest {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::string_view kSecondsShape = "dddd-dd-ddTdd:dd:dd";
constexpr int kReferenceYear = 2001;

// Whether the text has the shape, in which `d` stands for a digit.
bool hasShape(std::string_view text, std::string_view shape) {
  if (text.size() != shape.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (shape[i] == 'd' ? !digit : text[i] != shape[i]) return false;
  }
  return true;
}

int numberAt(std::string_view text, std::size_t offset, std::size_t size) {
  return std::stoi(std::string(text.substr(offset, size)));
}

bool isLeap(int year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int daysIn(int month, int year) {
  constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[static_cast<std::size_t>(month - 1)] + (month == 2 && isLeap(year) ? 1 : 0);
}

int daysIn(int year) {
  return isLeap(year) ? 366 : 365;
}

// From the first day of 2001.
std::int64_t dayNumber(int year, int month, int day) {
  std::int64_t days = day - 1;
  for (int i = 1; i < month; ++i) days += daysIn(i, year);
  for (int i = kReferenceYear; i < year; ++i) days += daysIn(i);
  for (int i = year; i < kReferenceYear; ++i) days -= daysIn(i);
  return days;
}

std::optional<std::int64_t> secondsOf(std::string_view text) {
  if (!hasShape(text, kSecondsShape)) return std::nullopt;
  const int year = numberAt(text, 0, 4);
  const int month = numberAt(text, 5, 2);
  const int day = numberAt(text, 8, 2);
  const int hour = numberAt(text, 11, 2);
  const int minute = numberAt(text, 14, 2);
  const int second = numberAt(text, 17, 2);
  if (month < 1 || month > 12 || day < 1 || day > daysIn(month, year)) return std::nullopt;
  if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return dayNumber(year, month, day) * kSecondsPerDay + hour * 3600 + minute * 60 + second;
}

// In seconds, of "Z", "+01", "+0130" or "+01:30".
std::optional<std::int64_t> offsetOf(std::string_view text) {
  if (text == "Z") return 0;
  if (text.empty() || (text.front() != '+' && text.front() != '-')) return std::nullopt;
  const std::int64_t sign = text.front() == '-' ? -1 : 1;
  text.remove_prefix(1);
  std::int64_t minutes = 0;
  if (hasShape(text, "dddd") || hasShape(text, "dd:dd")) {
    minutes = numberAt(text, text.size() - 2, 2);
  } else if (!hasShape(text, "dd")) {
    return std::nullopt;
  }
  const std::int64_t hours = numberAt(text, 0, 2);
  if (hours > 23 || minutes > 59) return std::nullopt;
  return sign * (hours * 3600 + minutes * 60);
}

}  // namespace

double nearestDouble(std::int64_t seconds, std::int64_t nanoseconds) {
  const bool negative = seconds < 0;
  if (negative && nanoseconds > 0) {
    seconds += 1;
    nanoseconds = kNanosecondsPerSecond - nanoseconds;
  }
  const auto fraction = std::to_string(kNanosecondsPerSecond + nanoseconds).substr(1);
  const auto text = std::to_string(std::abs(seconds)) + "." + fraction;
  double number = 0;
  std::istringstream(text) >> number;  // not every library's from_chars reads fractions
  return negative ? -number : number;
}

std::optional<kvl::Date> referenceDate(std::string_view text) {
  const auto seconds = secondsOf(text.substr(0, kSecondsShape.size()));
  if (!seconds) return std::nullopt;
  text.remove_prefix(kSecondsShape.size());
  std::string fraction;
  if (text.starts_with('.')) {
    const auto end = std::min(text.find_first_not_of("0123456789", 1), text.size());
    fraction = text.substr(1, end - 1);
    if (fraction.empty() || fraction.size() > 9) return std::nullopt;
    text.remove_prefix(end);
  }
  fraction.resize(9, '0');
  const auto offset = offsetOf(text);
  if (!offset) return std::nullopt;
  return kvl::Date(nearestDouble(*seconds - *offset, std::stoll(fraction)));
}

}  // namespace kvltest
