#include "platform/formatting/LocalisedTime.h"
#include "tests/support/UserEnvironment.h"

#include <local/KVLEncodingLocale.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::formatting::spelledOutDuration;

TEST(DurationTest, SpellsOutHoursMinutesAndSeconds) {
  EXPECT_EQ(spelledOutDuration(3725, "en_US"), "1 hour, 2 minutes, 5 seconds");
  EXPECT_EQ(spelledOutDuration(3725, "de_DE.UTF-8"), "1 Stunde, 2 Minuten und 5 Sekunden");
  EXPECT_EQ(spelledOutDuration(3725, "fr_FR"), "1\u00a0heure, 2 minutes et 5\u00a0secondes");
  EXPECT_EQ(spelledOutDuration(3725, "ja_JP"), "1 時間 2 分 5 秒");
  EXPECT_EQ(spelledOutDuration(3725, "ar"), "ساعة، ودقيقتان، و٥ ثوان");
}

TEST(DurationTest, PluralsFollowTheLanguage) {
  EXPECT_EQ(spelledOutDuration(3661, "ru_RU"), "1 час 1 минута 1 секунда");
  EXPECT_EQ(spelledOutDuration(3725, "ru_RU"), "1 час 2 минуты 5 секунд");
  EXPECT_EQ(spelledOutDuration(75621, "ru_RU"), "21 час 21 секунда");
  EXPECT_EQ(spelledOutDuration(3661, "pl_PL"), "1 godzina, 1 minuta i 1 sekunda");
  EXPECT_EQ(spelledOutDuration(3725, "pl_PL"), "1 godzina, 2 minuty i 5 sekund");
  EXPECT_EQ(spelledOutDuration(79342, "pl_PL"), "22 godziny, 2 minuty i 22 sekundy");
}

TEST(DurationTest, WritesInTheScriptThatTheLocaleNames) {
  EXPECT_EQ(spelledOutDuration(60, "sr_RS.UTF-8"), "1 минут");
  EXPECT_EQ(spelledOutDuration(60, "sr_RS.UTF-8@latin"), "1 minut");
  EXPECT_EQ(spelledOutDuration(60, "sr_RS@latin"), "1 minut");
  EXPECT_EQ(spelledOutDuration(60, "sr@latin"), "1 minut");
}

TEST(DurationTest, LeavesOutPartsThatAreZero) {
  EXPECT_EQ(spelledOutDuration(0, "en_US"), "0 seconds");
  EXPECT_EQ(spelledOutDuration(5, "en_US"), "5 seconds");
  EXPECT_EQ(spelledOutDuration(60, "en_US"), "1 minute");
  EXPECT_EQ(spelledOutDuration(3601, "en_US"), "1 hour, 1 second");
}

TEST(DurationTest, HasNoDays) {
  EXPECT_EQ(spelledOutDuration(90000, "en_US"), "25 hours");
}

TEST(DurationTest, NegativeLengthsHaveOneSign) {
  EXPECT_EQ(spelledOutDuration(-3725, "en_US"), "-1 hour, 2 minutes, 5 seconds");
  EXPECT_EQ(spelledOutDuration(-15, "en_US"), "-15 seconds");
}

TEST(DurationTest, TheLongestLengthsDoNotOverflow) {
  EXPECT_EQ(spelledOutDuration(INT64_MAX, "en_US"),
            "2,562,047,788,015,215 hours, 30 minutes, 7 seconds");
  EXPECT_EQ(spelledOutDuration(INT64_MIN, "en_US"),
            "-2,562,047,788,015,215 hours, 30 minutes, 8 seconds");
}

TEST(DurationTest, LocalesNobodyKnowsStillGiveAText) {
  EXPECT_FALSE(spelledOutDuration(5, "xx_YY").empty());
  EXPECT_FALSE(spelledOutDuration(5, "").empty());
  EXPECT_FALSE(spelledOutDuration(5, std::string(5000, 'x')).empty());
}

TEST(DurationTest, FollowsTheUsersLocale) {
  const kvltest::UserEnvironment user("de_DE.UTF-8", "UTC");
  EXPECT_EQ(KVLEncoding::duration(5), "5 Sekunden");
  kvltest::UserEnvironment::set("LC_ALL", "C");
  EXPECT_EQ(KVLEncoding::duration(15), "15 seconds");
}

}  // namespace
