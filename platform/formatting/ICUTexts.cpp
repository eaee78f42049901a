// Dates, lengths of time and counts of updates by ICU.
#include "platform/core/NoDestructor.h"
#include "platform/formatting/ICU.h"
#include "platform/formatting/Texts.h"
#include "platform/formatting/UpdateWords.h"
#include "platform/formatting/UserLocale.h"

#include <local/platform/Mutex.h>

#include <unicode/datefmt.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/numberformatter.h>
#include <unicode/numfmt.h>
#include <unicode/plurrule.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
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

// Calls at one time use formatters of their own, and the lock is not held while formatting.
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

constexpr std::string_view kPlace = "{}";

icu::Locale withLikelySubtags(icu::Locale locale) {
  UErrorCode status = U_ZERO_ERROR;
  locale.addLikelySubtags(status);
  return locale;
}

const UpdateWords* wordsNamed(std::string_view language) {
  const auto all = allUpdateWords();
  const auto found = std::ranges::find(all, language, &UpdateWords::language);
  return found != all.end() ? &*found : nullptr;
}

// Null for a language without words, and for one in a script in which its words are not known.
const UpdateWords* wordsFor(const icu::Locale& locale) {
  const auto full = withLikelySubtags(locale);
  const std::string language = full.getLanguage();
  const std::string_view script = full.getScript();
  const std::string_view country = full.getCountry();
  if (language == "no") return wordsNamed("nb");
  if (language == "pt" && country != "BR") return wordsNamed("pt_PT");
  if (const auto* words = wordsNamed(language + '_' + std::string(script))) return words;
  const bool usual = script == withLikelySubtags(icu::Locale(language.c_str())).getScript();
  return usual ? wordsNamed(language) : nullptr;
}

struct Language {
  icu::Locale locale;
  const UpdateWords* words;
};

// The first of the locales between colons whose words are known, else English.
Language firstKnownLanguage(std::string_view locales) {
  while (!locales.empty()) {
    const std::string name(locales.substr(0, locales.find(':')));
    locales.remove_prefix(std::min(name.size() + 1, locales.size()));
    if (name.empty()) continue;
    const auto locale = icuLocale(withoutCLocale(name));
    if (const auto* words = wordsFor(locale)) return {locale, words};
  }
  return {icu::Locale::getEnglish(), &allUpdateWords().front()};
}

// The words and the digits of a language. Immutable: any number of threads may use one.
class UpdateCounter {
 public:
  explicit UpdateCounter(std::string_view locales) : UpdateCounter(firstKnownLanguage(locales)) {}

  // None where ICU lacks the language's data.
  [[nodiscard]] std::optional<std::string> text(std::int64_t count) const {
    UErrorCode status = U_ZERO_ERROR;
    const auto number = numbers_.formatInt(count, status);
    const auto digits = number.toString(status);
    if (U_FAILURE(status) || !rules_) return std::nullopt;
    const auto category = rules_->select(number, status);
    if (U_FAILURE(status)) return std::nullopt;
    auto form = formForCategory(words_, utf8(category));
    // Some languages have a word for the number, which has no sign.
    if (count < 0 && form.find(kPlace) == std::string_view::npos) form = words_.other;
    return withNumber(form, utf8(digits));
  }

 private:
  explicit UpdateCounter(const Language& language)
      : words_(*language.words),
        numbers_(icu::number::NumberFormatter::withLocale(language.locale)) {
    UErrorCode status = U_ZERO_ERROR;
    const std::string spoken(
        words_.language);  // ICU does not know that Angola's rules are Portugal's
    rules_.reset(icu::PluralRules::forLocale(icu::Locale(spoken.c_str()), status));
  }

  static std::string withNumber(std::string_view form, const std::string& number) {
    std::string text(form);
    const auto place = form.find(kPlace);
    return place == std::string_view::npos ? text : text.replace(place, kPlace.size(), number);
  }

  const UpdateWords& words_;
  const icu::number::LocalizedNumberFormatter numbers_;
  std::unique_ptr<const icu::PluralRules> rules_;
};

using CounterRef = std::shared_ptr<const UpdateCounter>;

// The counters of recently used locales: making one takes a hundred times as long as using it.
class KnownCounters {
 public:
  CounterRef counterFor(std::string locales) {
    const MutexLock lock(mutex_);
    const auto found = std::ranges::find(known_, locales, &Known::first);
    if (found != known_.end()) return found->second;
    if (known_.size() == kMost) known_.erase(known_.begin());
    auto counter = std::make_shared<const UpdateCounter>(locales);
    known_.emplace_back(std::move(locales), counter);
    return counter;
  }

 private:
  using Known = std::pair<std::string, CounterRef>;
  // A process has one locale, or a few when its user changes it.
  static constexpr std::size_t kMost = 8;

  Mutex mutex_;
  std::vector<Known> known_ KVL_GUARDED_BY(mutex_);  // the oldest in front
};

KnownCounters& knownCounters() {
  static NoDestructor<KnownCounters> instance;
  return *instance;
}

class ICUTexts final : public Texts {
 public:
  std::optional<std::string> date(Date wallClock, DateStyle style,
                                  const std::string& locale) override {
    return icuDate(wallClock, style, locale);
  }
  std::optional<std::string> duration(std::int64_t seconds, const std::string& locale) override {
    return icuDuration(seconds, locale);
  }
  std::optional<std::string> updateCount(std::int64_t count, const std::string& locales) override {
    return knownCounters().counterFor(locales)->text(count);
  }
};

}  // namespace

Texts& icuTexts() noexcept {
  static NoDestructor<ICUTexts> all;
  return *all;
}

}  // namespace kvl::formatting
