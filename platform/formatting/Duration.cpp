#include "platform/formatting/Duration.h"

#include "platform/formatting/ICULocale.h"

#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/numfmt.h>

#include <vector>

namespace kvl::formatting {
namespace {

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;

void addPart(std::vector<icu::Measure>& parts, std::int64_t count, icu::MeasureUnit* unit,
             UErrorCode& status) {
  parts.emplace_back(icu::Formattable(count), unit, status);
}

// The parts that are not zero, or zero seconds.
std::vector<icu::Measure> partsOf(std::uint64_t seconds, UErrorCode& status) {
  const auto hours = static_cast<std::int64_t>(seconds / kSecondsPerHour);
  const auto minutes = static_cast<std::int64_t>(seconds % kSecondsPerHour / kSecondsPerMinute);
  const auto rest = static_cast<std::int64_t>(seconds % kSecondsPerMinute);
  std::vector<icu::Measure> parts;
  if (hours != 0) addPart(parts, hours, icu::MeasureUnit::createHour(status), status);
  if (minutes != 0) addPart(parts, minutes, icu::MeasureUnit::createMinute(status), status);
  if (rest != 0 || parts.empty()) {
    addPart(parts, rest, icu::MeasureUnit::createSecond(status), status);
  }
  return parts;
}

// In case ICU has no data at all, the user still reads a length of time.
std::string plainDuration(std::int64_t seconds) {
  return std::to_string(seconds) + " s";
}

}  // namespace

std::string spelledOutDuration(std::int64_t seconds, const std::string& localeName) {
  // ICU would negate every part, so the sign goes in front of the whole.
  const bool negative = seconds < 0;
  const auto magnitude =
      negative ? 0 - static_cast<std::uint64_t>(seconds) : static_cast<std::uint64_t>(seconds);
  UErrorCode status = U_ZERO_ERROR;
  const icu::MeasureFormat formatter(icuLocale(localeName), UMEASFMT_WIDTH_WIDE, status);
  const auto parts = partsOf(magnitude, status);
  icu::UnicodeString text;
  icu::FieldPosition position;
  if (U_SUCCESS(status)) {
    formatter.formatMeasures(parts.data(), static_cast<int32_t>(parts.size()), text, position,
                             status);
  }
  if (U_FAILURE(status)) return plainDuration(seconds);
  std::string result;
  text.toUTF8String(result);
  return negative ? "-" + result : result;
}

}  // namespace kvl::formatting
