#include "platform/formatting/LocalisedDate.h"

#include "platform/formatting/ICULocale.h"
#include "platform/formatting/UserLocale.h"

#include <unicode/datefmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kvl::formatting {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
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
    std::string result;
    return text.toUTF8String(result);
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
      const std::lock_guard lock(mutex_);
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
    const std::lock_guard lock(mutex_);
    if (idle_.size() == kMost) idle_.erase(idle_.begin());
    idle_.push_back(std::move(formats));
  }

 private:
  // A process has one locale, or a few when its user changes it, and seldom two threads here.
  static constexpr std::size_t kMost = 8;

  std::mutex mutex_;
  std::vector<std::unique_ptr<DateFormats>> idle_;  // the longest unused in front
};

// Never destroyed: threads may still write texts while the process exits.
IdleFormats& idleFormats() {
  static auto& instance = *new IdleFormats;
  return instance;
}

std::optional<std::string> formatted(Date wallClock, DateStyle style, const std::string& locale) {
  auto formats = idleFormats().take(locale);
  auto text = formats->text(wallClock, style);
  idleFormats().giveBack(std::move(formats));
  return text;
}

}  // namespace

std::optional<std::string> localisedDate(Date date, DateStyle style, const std::string& locale) {
  const auto wallClock = userWallClock(date);
  return wallClock ? formatted(*wallClock, style, locale) : std::nullopt;
}

std::optional<std::string> localisedTimeOfDay(std::int64_t seconds, const std::string& locale) {
  const auto second = (seconds % kSecondsPerDay + kSecondsPerDay) % kSecondsPerDay;
  return formatted(Date(static_cast<double>(second)), DateStyle::time, locale);
}

}  // namespace kvl::formatting
