#include "platform/formatting/UpdateWords.h"
#include "tests/support/UserEnvironment.h"

#include <local/platform/UpdateCount.h>

#include <gtest/gtest.h>
#include <unicode/plurrule.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvl::localizedUpdateCount;
using kvl::formatting::UpdateWords;
using kvltest::UserEnvironment;

TEST(UpdateCountTest, FollowsThePluralsOfTheLanguage) {
  EXPECT_EQ(localizedUpdateCount(1, "en_US.UTF-8"), "1 update");
  EXPECT_EQ(localizedUpdateCount(3, "en_US.UTF-8"), "3 updates");
  EXPECT_EQ(localizedUpdateCount(1, "de_DE"), "1 Aktualisierung");
  EXPECT_EQ(localizedUpdateCount(2, "de_DE"), "2 Aktualisierungen");
  EXPECT_EQ(localizedUpdateCount(21, "ru_RU"), "21 обновление");
  EXPECT_EQ(localizedUpdateCount(22, "ru_RU"), "22 обновления");
  EXPECT_EQ(localizedUpdateCount(11, "ru_RU"), "11 обновлений");
  EXPECT_EQ(localizedUpdateCount(22, "pl_PL"), "22 aktualizacje");
  EXPECT_EQ(localizedUpdateCount(12, "pl_PL"), "12 aktualizacji");
  EXPECT_EQ(localizedUpdateCount(102, "sl_SI"), "102 posodobitvi");
  EXPECT_EQ(localizedUpdateCount(19, "ro_RO"), "19 actualizări");
  EXPECT_EQ(localizedUpdateCount(20, "ro_RO"), "20 de actualizări");
  EXPECT_EQ(localizedUpdateCount(3, "ja_JP"), "3件のアップデート");
}

TEST(UpdateCountTest, WritesTheDigitsOfTheLanguage) {
  EXPECT_EQ(localizedUpdateCount(3, "ar_EG"), "٣ تحديثات");
  EXPECT_EQ(localizedUpdateCount(3, "ar-u-nu-latn"), "3 تحديثات");
  EXPECT_EQ(localizedUpdateCount(15, "fa_IR"), "۱۵ به‌روزرسانی");
  EXPECT_EQ(localizedUpdateCount(1234567, "en_US"), "1,234,567 updates");
  EXPECT_EQ(localizedUpdateCount(1234567, "en_IN"), "12,34,567 updates");
  EXPECT_EQ(localizedUpdateCount(1234, "de"), "1.234 Aktualisierungen");
}

TEST(UpdateCountTest, SaysOneAndTwoAsTheLanguageDoes) {
  EXPECT_EQ(localizedUpdateCount(1, "ar"), "تحديث واحد");
  EXPECT_EQ(localizedUpdateCount(2, "ar"), "تحديثان");
  EXPECT_EQ(localizedUpdateCount(2, "he_IL"), "שני עדכונים");
}

TEST(UpdateCountTest, NoneAndNegativeNumbersAreNumbersToo) {
  EXPECT_EQ(localizedUpdateCount(0, "en"), "0 updates");
  EXPECT_EQ(localizedUpdateCount(0, "fr"), "0 mise à jour");
  EXPECT_EQ(localizedUpdateCount(0, "pt_BR"), "0 atualização");
  EXPECT_EQ(localizedUpdateCount(-3, "en"), "-3 updates");
  EXPECT_EQ(localizedUpdateCount(-1, "en"), "-1 update");
}

TEST(UpdateCountTest, WordsForANumberDoNotLoseItsSign) {
  for (const char* locale : {"ar", "he"}) {
    EXPECT_NE(localizedUpdateCount(-1, locale), localizedUpdateCount(1, locale)) << locale;
    EXPECT_NE(localizedUpdateCount(-2, locale), localizedUpdateCount(2, locale)) << locale;
  }
}

TEST(UpdateCountTest, TheGreatestNumbersAreExact) {
  EXPECT_EQ(localizedUpdateCount(INT64_MAX, "en"), "9,223,372,036,854,775,807 updates");
  EXPECT_EQ(localizedUpdateCount(INT64_MIN, "en"), "-9,223,372,036,854,775,808 updates");
  EXPECT_EQ(localizedUpdateCount(9007199254740993, "C"), "9007199254740993 updates");
  EXPECT_EQ(localizedUpdateCount(9007199254740991, "ru"),
            "9\u00a0007\u00a0199\u00a0254\u00a0740"
            "\u00a0991 обновление");
}

TEST(UpdateCountTest, TellsCountriesAndScriptsApart) {
  EXPECT_EQ(localizedUpdateCount(0, "pt_PT"), "0 atualizações");
  EXPECT_EQ(localizedUpdateCount(0, "pt_AO"), "0 atualizações");
  EXPECT_EQ(localizedUpdateCount(2, "zh_CN.UTF-8"), "2 项更新");
  EXPECT_EQ(localizedUpdateCount(2, "zh_TW.UTF-8"), "2 項更新");
  EXPECT_EQ(localizedUpdateCount(2, "zh-Hant"), "2 項更新");
  EXPECT_EQ(localizedUpdateCount(2, "sr_RS.UTF-8"), "2 ажурирања");
  EXPECT_EQ(localizedUpdateCount(2, "sr_RS.UTF-8@latin"), "2 ažuriranja");
  EXPECT_EQ(localizedUpdateCount(2, "sr-Latn-RS"), "2 ažuriranja");
}

TEST(UpdateCountTest, TakesOldAndCommonNamesOfLanguages) {
  EXPECT_EQ(localizedUpdateCount(3, "iw_IL"), localizedUpdateCount(3, "he_IL"));
  EXPECT_EQ(localizedUpdateCount(3, "in_ID"), localizedUpdateCount(3, "id_ID"));
  EXPECT_EQ(localizedUpdateCount(3, "no_NO"), "3 oppdateringer");
}

TEST(UpdateCountTest, LanguagesNobodyKnowsGetEnglishWordsAndDigits) {
  for (const std::string& locale : {std::string("xx_YY"), std::string("bn_BD"), std::string("und"),
                                    std::string(":"), std::string("hi_Latn_IN"), std::string("{}"),
                                    std::string(5000, 'x'), std::string("\0", 1)}) {
    EXPECT_EQ(localizedUpdateCount(1234, locale), "1,234 updates") << locale;
  }
}

// The language of the user's messages.
std::string usersText() {
  return localizedUpdateCount(3);
}

TEST(UpdateCountTest, FollowsTheVariablesOfMessagesInTheirOrder) {
  const UserEnvironment user;
  EXPECT_EQ(usersText(), "3 updates");
  UserEnvironment::set("LANG", "fr_FR.UTF-8");
  UserEnvironment::set("LC_TIME", "ja_JP.UTF-8");
  EXPECT_EQ(usersText(), "3 mises à jour");
  UserEnvironment::set("LC_MESSAGES", "de_DE.UTF-8");
  EXPECT_EQ(usersText(), "3 Aktualisierungen");
  UserEnvironment::set("LC_ALL", "sv_SE.UTF-8");
  EXPECT_EQ(usersText(), "3 uppdateringar");
  UserEnvironment::set("LC_ALL", "");
  EXPECT_EQ(usersText(), "3 Aktualisierungen");
}

TEST(UpdateCountTest, TheFirstKnownOfTheWantedLanguagesCounts) {
  const UserEnvironment user("sv_SE.UTF-8", "UTC");
  UserEnvironment::set("LANGUAGE", "xx:nl_NL:de");
  EXPECT_EQ(usersText(), "3 updates");
  UserEnvironment::set("LANGUAGE", "xx::de_DE.UTF-8:nl");
  EXPECT_EQ(usersText(), "3 Aktualisierungen");
  UserEnvironment::set("LANGUAGE", "C:de");
  EXPECT_EQ(usersText(), "3 updates");
  UserEnvironment::set("LANGUAGE", "xx");
  EXPECT_EQ(usersText(), "3 uppdateringar");
  UserEnvironment::set("LANGUAGE", "");
  EXPECT_EQ(usersText(), "3 uppdateringar");
}

TEST(UpdateCountTest, TheCLocaleIsEnglishWhateverLanguagesAreWanted) {
  for (const char* name : {"C", "POSIX", "C.UTF-8"}) {
    const UserEnvironment user(name, "UTC");
    UserEnvironment::set("LANGUAGE", "de");
    EXPECT_EQ(usersText(), "3 updates") << name;
    EXPECT_EQ(localizedUpdateCount(1234), "1234 updates") << name;
    EXPECT_EQ(localizedUpdateCount(1234, name), "1234 updates") << name;
  }
}

TEST(UpdateCountTest, AnyNumberOfThreadsMayAskInAnyNumberOfLanguages) {
  const auto languages = kvl::formatting::allUpdateWords();
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 5; ++round) {
        for (const auto& words : languages)
          EXPECT_NE(localizedUpdateCount(7, std::string(words.language)), "");
        for (int count = 0; count < 100; ++count)
          EXPECT_EQ(localizedUpdateCount(30 + count, "C"), std::to_string(30 + count) + " updates");
      }
    });
  }
}

std::string_view writtenForm(const UpdateWords& words, const std::string& category) {
  if (category == "zero") return words.zero;
  if (category == "one") return words.one;
  if (category == "two") return words.two;
  if (category == "few") return words.few;
  return category == "many" ? words.many : words.other;
}

std::vector<double> tellingNumbers() {
  std::vector<double> numbers{1e4, 1e5, 1e6, 2e6, 1000001, 1e7, 1e9, 1e12, 1e15};
  for (int i = 0; i <= 1000; ++i) numbers.push_back(i);
  return numbers;
}

TEST(UpdateWordsTest, EachLanguageHasAFormForEachOfItsCategories) {
  for (const auto& words : kvl::formatting::allUpdateWords()) {
    UErrorCode status = U_ZERO_ERROR;
    const std::string language(words.language);
    const std::unique_ptr<icu::PluralRules> rules(
        icu::PluralRules::forLocale(icu::Locale(language.c_str()), status));
    ASSERT_TRUE(U_SUCCESS(status)) << language;
    for (const double number : tellingNumbers()) {
      std::string category;
      rules->select(number).toUTF8String(category);
      ASSERT_FALSE(writtenForm(words, category).empty()) << language << ": " << number;
    }
  }
}

TEST(UpdateWordsTest, FormsShowTheNumberAtMostOnceAndOtherAlways) {
  for (const auto& words : kvl::formatting::allUpdateWords()) {
    for (const auto form : {words.zero, words.one, words.two, words.few, words.many, words.other})
      EXPECT_EQ(form.find("{}"), form.rfind("{}")) << form;
    EXPECT_NE(words.other.find("{}"), std::string_view::npos) << words.language;
  }
}

TEST(UpdateWordsTest, EachCategoryHasItsForm) {
  constexpr UpdateWords words{.language = "xx",
                              .zero = "none",
                              .one = "a",
                              .two = "both",
                              .few = "some",
                              .many = "plenty",
                              .other = "{}"};
  for (const auto& [category, form] : {std::pair("zero", "none"),
                                       {"one", "a"},
                                       {"two", "both"},
                                       {"few", "some"},
                                       {"many", "plenty"},
                                       {"other", "{}"}})
    EXPECT_EQ(formForCategory(words, category), form) << category;
}

TEST(UpdateWordsTest, CategoryWithoutAFormOfItsOwnGetsTheGeneralOne) {
  const auto& english = kvl::formatting::allUpdateWords().front();
  EXPECT_EQ(formForCategory(english, "many"), "{} updates");
  EXPECT_EQ(formForCategory(english, "anything"), "{} updates");
  EXPECT_EQ(formForCategory(english, "one"), "{} update");
}

}  // namespace
