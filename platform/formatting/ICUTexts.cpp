// Counts of updates by ICU, and its part of the library.
#include "platform/core/NoDestructor.h"
#include "platform/formatting/ICU.h"
#include "platform/formatting/ICUDates.h"
#include "platform/formatting/Texts.h"
#include "platform/formatting/UpdateWords.h"
#include "platform/formatting/UserLocale.h"

#include <local/platform/Mutex.h>

#include <unicode/numberformatter.h>
#include <unicode/plurrule.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::formatting {
namespace {

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
