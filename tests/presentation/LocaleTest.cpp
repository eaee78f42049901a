#include "tests/support/LogCapture.h"
#include "tests/support/UserEnvironment.h"

#include <local/KVLEncodingLocale.h>

#include <gmock/gmock.h>

#include <string>
#include <string_view>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using KVLEncoding::stringWithLocales;
using kvltest::UserEnvironment;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kAfternoon = "2024-05-01T14:34:56Z";

// A German in Berlin, where that afternoon is 16:34.
class LocaleTest : public testing::Test {
 protected:
  static std::string rendered(const char* text, const Dictionary& entry) {
    return stringWithLocales(text, Array{entry});
  }

  const UserEnvironment user{"de_DE.UTF-8", "Europe/Berlin"};
  const kvltest::LogCapture log;
};

TEST(LocaleKeyTest, AreVariablesOfTheHost) {
  EXPECT_EQ(KVLEncoding::KVLEncodingKeyText, "text");
  EXPECT_EQ(KVLEncoding::KVLEncodingKeyLocale, "locale");
  const std::string_view before = std::exchange(KVLEncoding::KVLEncodingKeyText, "other");
  EXPECT_EQ(std::exchange(KVLEncoding::KVLEncodingKeyText, before), "other");
}

TEST_F(LocaleTest, WithoutEntriesTheTemplateComesBack) {
  EXPECT_EQ(stringWithLocales("until %T", Value()), "until %T");
  EXPECT_EQ(stringWithLocales("until %T", nullptr), "until %T");
  EXPECT_EQ(stringWithLocales("until %T", Array()), "until %T");
  EXPECT_EQ(stringWithLocales("", Array()), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, EntriesThatAreNoArrayAreReported) {
  const Dictionary entry{{"find", "%T"}, {"type", "duration"}};
  EXPECT_EQ(stringWithLocales("%T", entry), "%T");
  EXPECT_EQ(stringWithLocales("%T", "duration"), "%T");
  EXPECT_EQ(stringWithLocales("%T", 5), "%T");
  EXPECT_THAT(log.lines(),
              ElementsAre(R"(expect locale as array: {find = "%T"; type = duration})",
                          "expect locale as array: duration", "expect locale as array: 5"));
}

TEST_F(LocaleTest, DateTimeOfADateIsMediumDateAndShortTime) {
  EXPECT_EQ(rendered("am %D da", {{"find", "%D"}, {"type", "date time"}, {"date", kAfternoon}}),
            "am 01.05.2024, 16:34 da");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, DateOfADateIsTheMediumDate) {
  EXPECT_EQ(rendered("am %D da", {{"find", "%D"}, {"type", "date"}, {"date", kAfternoon}}),
            "am 01.05.2024 da");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, TimeOfADateIsTheShortTime) {
  EXPECT_EQ(rendered("um %D da", {{"find", "%D"}, {"type", "time"}, {"date", kAfternoon}}),
            "um 16:34 da");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, TimeWithoutADateCountsFromMidnight) {
  const auto at = [](const Value& seconds) {
    return rendered("%T", {{"find", "%T"}, {"type", "time"}, {"seconds", seconds}});
  };
  EXPECT_EQ(at(3600), "01:00");
  EXPECT_EQ(at(90000), "01:00");
  EXPECT_EQ(at(52496), "14:34");
  EXPECT_EQ(at(-60), "23:59");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, DurationSpellsOutItsSeconds) {
  const auto of = [](const Value& seconds) {
    return rendered("in %T", {{"find", "%T"}, {"type", "duration"}, {"seconds", seconds}});
  };
  EXPECT_EQ(of(3725), "in 1 Stunde, 2 Minuten und 5 Sekunden");
  EXPECT_EQ(of(90000), "in 25 Stunden");
  EXPECT_EQ(of(5.9), "in 5 Sekunden");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, SecondsAreZeroByDefault) {
  EXPECT_EQ(rendered("%T", {{"find", "%T"}, {"type", "time"}}), "00:00");
  EXPECT_EQ(rendered("%T", {{"find", "%T"}, {"type", "duration"}}), "0 Sekunden");
  EXPECT_EQ(rendered("%T", {{"find", "%T"}, {"type", "duration"}, {"seconds", Value()}}),
            "0 Sekunden");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, AnEmptyDateIsNone) {
  EXPECT_EQ(rendered("%T", {{"find", "%T"}, {"type", "duration"}, {"date", ""}, {"seconds", 5}}),
            "5 Sekunden");
  EXPECT_EQ(rendered("%T", {{"find", "%T"}, {"type", "time"}, {"date", Value()}}), "00:00");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, DatesAreInTheUsersZone) {
  const Dictionary entry{{"find", "%D"}, {"type", "date time"}, {"date", "2024-03-31T00:59:59Z"}};
  EXPECT_EQ(rendered("%D", entry), "31.03.2024, 01:59");
  EXPECT_EQ(rendered("%D", {{"find", "%D"}, {"type", "time"}, {"date", "2024-03-31T01:00:00Z"}}),
            "03:00");
  UserEnvironment::set("TZ", "America/New_York");
  EXPECT_EQ(rendered("%D", entry), "30.03.2024, 20:59");
  UserEnvironment::set("TZ", "Asia/Kathmandu");
  EXPECT_EQ(rendered("%D", entry), "31.03.2024, 06:44");
}

TEST_F(LocaleTest, DatesMayHaveAnOffsetAndAFraction) {
  const auto at = [](const char* date) {
    return rendered("%D", {{"find", "%D"}, {"type", "time"}, {"date", date}});
  };
  EXPECT_EQ(at("2024-05-01T14:34:56.999999999Z"), "16:34");
  EXPECT_EQ(at("2024-05-01T14:34:56-07:00"), "23:34");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, TextsFollowTheUsersLocale) {
  const Array entries{Dictionary{{"find", "%D"}, {"type", "date time"}, {"date", kAfternoon}},
                      Dictionary{{"find", "%L"}, {"type", "duration"}, {"seconds", 125}}};
  const auto text = [&] { return stringWithLocales("%D (%L)", entries); };
  EXPECT_EQ(text(), "01.05.2024, 16:34 (2 Minuten, 5 Sekunden)");
  UserEnvironment::set("LC_ALL", "");
  UserEnvironment::set("LANG", "pl_PL.UTF-8");
  EXPECT_EQ(text(), "1 maj 2024, 16:34 (2 minuty i 5 sekund)");
  UserEnvironment::set("LC_TIME", "ru_RU.UTF-8");
  EXPECT_EQ(text(), "1 мая 2024\u202fг., 16:34 (2 минуты 5 секунд)");
  UserEnvironment::set("LC_ALL", "POSIX");
  EXPECT_EQ(text(), "May 1, 2024, 4:34\u202fPM (2 minutes, 5 seconds)");
}

TEST_F(LocaleTest, EntriesApplyInOrderEachToWhatTheOnesBeforeMade) {
  const Dictionary inner{{"find", "%T"}, {"type", "time"}, {"seconds", 3600}};
  const Dictionary outer{{"find", "[%T]"}, {"type", "duration"}, {"seconds", 5}};
  EXPECT_EQ(stringWithLocales("at [%T]", Array{inner, outer}), "at [01:00]");
  EXPECT_EQ(stringWithLocales("at [%T]", Array{outer, inner}), "at 5 Sekunden");
  const Dictionary ofTheResult{{"find", "[01:00]"}, {"type", "duration"}, {"seconds", 7}};
  EXPECT_EQ(stringWithLocales("at [%T]", Array{inner, ofTheResult}), "at 7 Sekunden");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, WhatAnEntryPutsInItDoesNotSearchAgain) {
  EXPECT_EQ(rendered("0|1", {{"find", "0"}, {"type", "time"}, {"seconds", 3600}}), "01:00|1");
  EXPECT_EQ(rendered("xxx", {{"find", "xx"}, {"type", "time"}, {"seconds", 0}}), "00:00x");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, EveryOccurrenceIsReplacedAndReportedOnce) {
  const Dictionary entry{{"find", "%T"}, {"type", "time"}, {"seconds", 3600}};
  EXPECT_EQ(rendered("%T", entry), "01:00");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(rendered("%T, %T", entry), "01:00, 01:00");
  EXPECT_EQ(rendered("%T%T-%T", entry), "01:0001:00-01:00");
  EXPECT_THAT(log.lines(), ElementsAre("locale matched multiple: 2 in '%T' in '01:00, 01:00'",
                                       "locale matched multiple: 3 in '%T' in '01:0001:00-01:00'"));
}

TEST_F(LocaleTest, TokensAreSearchedByteForByte) {
  const auto found = [](const char* text, const char* token) {
    return rendered(text, {{"find", token}, {"type", "time"}}) != text;
  };
  EXPECT_FALSE(found("%t", "%T"));
  EXPECT_FALSE(found("abc", "a.c"));
  EXPECT_FALSE(found("e\u0301", "\u00e9"));
  EXPECT_TRUE(found("\u00fcber", "\u00fc"));
  EXPECT_TRUE(found("a.*c", ".*"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

// Comparing from each place anew takes the product of both lengths, which is hours here.
TEST_F(LocaleTest, SearchTakesTimeForTheTextOnceWhateverTheToken) {
  const std::string run(std::size_t{16} << 20, 'a');
  const std::string token = std::string(run.size() / 2, 'a') + 'b';
  const Array entries{Dictionary{{"find", token}, {"type", "time"}, {"seconds", 3600}}};
  EXPECT_EQ(stringWithLocales(run, entries), run);
  EXPECT_EQ(stringWithLocales(run + token, entries), run + "01:00");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LocaleTest, TokensThatEndWithTheirBeginningAreFoundFromTheLeft) {
  EXPECT_EQ(rendered("ababab", {{"find", "abab"}, {"type", "time"}}), "00:00ab");
  EXPECT_EQ(rendered("aabaab", {{"find", "aab"}, {"type", "time"}}), "00:0000:00");
  EXPECT_EQ(rendered("aaab", {{"find", "aab"}, {"type", "time"}}), "a00:00");
}

TEST_F(LocaleTest, ATokenThatDoesNotOccurIsNotReported) {
  EXPECT_EQ(rendered("nothing", {{"find", "%T"}, {"type", "time"}}), "nothing");
  EXPECT_EQ(rendered("", {{"find", "%T"}, {"type", "time"}}), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
