// Dates and lengths of time by ICU.
#include "platform/formatting/ICUDates.h"

#include "platform/core/NoDestructor.h"
#include "platform/formatting/ICU.h"

#include <local/platform/Mutex.h>

#include <unicode/datefmt.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/numfmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
#include <vector>

namespace kvl::formatting {
namespace {

constexpr std::int64_t kSecondsPerMinute = 60;
constexpr std::int64_t kSecondsPerHour = 3600;
constexpr double kMillisecondsPerSecond = 1000;
constexpr std::size_t kStyleCount = 3;

std::unique_ptr<icu::DateFormat> makeFormat(DateStyle style, const std::string& localeName) {
  using icu::DateFormat;
  const auto locale = icuLocale(localeName);
  const auto date = style == DateStyle::time ? DateFormat::kNone : DateFormat::kMedium;
  const auto time = style == DateStyle::date ? DateFormat::kNone : DateFormat::kShort;
  std::unique_ptr<DateFormat> format(DateFormat::createDateTimeInstance(date, time, locale));
  if (format) format->setTimeZone(*icu::TimeZone::getGMT());
  return format;
}

// The formatters of one locale, each made when it is first used. They run on GMT, since the zone is
// in the dates that they are given. One thread at a time.
class DateFormats {
 public:
  explicit DateFormats(std::string locale) : locale_(std::move(locale)) {}
  [[nodiscard]] const std::string& locale() const { return locale_; }

  std::optional<std::string> text(Date wallClock, DateStyle style) {
    auto& format = formats_.at(static_cast<std::size_t>(style));
    if (!format) format = makeFormat(style, locale_);
    if (!format) return std::nullopt;
    icu::UnicodeString text;
    format->format(wallClock.secondsSince1970() * kMillisecondsPerSecond, text);
    return utf8(text);
  }

 private:
  const std::string locale_;
  std::array<std::unique_ptr<icu::DateFormat>, kStyleCount> formats_;
};

// The formatters that no call uses at the moment. Making one costs fifteen times what using it
// does.
class IdleFormats {
 public:
  std::unique_ptr<DateFormats> take(const std::string& locale) {
    {
      const MutexLock lock(mutex_);
      const auto found =
          std::ranges::find_if(idle_, [&](const auto& each) { return each->locale() == locale; });
      if (found != idle_.end()) {
        auto formats = std::move(*found);
        idle_.erase(found);
        return formats;
      }
    }
    return std::make_unique<DateFormats>(locale);
  }

  void giveBack(std::unique_ptr<DateFormats> formats) {
    const MutexLock lock(mutex_);
    if (idle_.size() == kMost) idle_.erase(idle_.begin());
    idle_.push_back(std::move(formats));
  }

 private:
  // A process has one locale, or a few when its user changes it, and seldom two threads here.
  static constexpr std::size_t kMost = 8;

  Mutex mutex_;
  // The longest unused in front.
  std::vector<std::unique_ptr<DateFormats>> idle_ KVL_GUARDED_BY(mutex_);
};

IdleFormats& idleFormats() {
  static NoDestructor<IdleFormats> instance;
  return *instance;
}

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

}  // namespace

std::optional<std::string> icuDate(Date wallClock, DateStyle style, const std::string& locale) {
  auto formats = idleFormats().take(locale);
  auto text = formats->text(wallClock, style);
  idleFormats().giveBack(std::move(formats));
  return text;
}

std::optional<std::string> icuDuration(std::int64_t seconds, const std::string& localeName) {
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
  if (U_FAILURE(status)) return std::nullopt;
  return negative ? "-" + utf8(text) : utf8(text);
}

}  // namespace kvl::formatting
