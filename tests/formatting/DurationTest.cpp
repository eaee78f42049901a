#include "platform/formatting/Duration.h"

#include <local/KVLEncodingLocale.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace {

using kvl::formatting::spelledOutDuration;
using kvl::formatting::userTimeLocale;

// Sets the variables of a test and puts the old ones back.
class EnvironmentTest : public testing::Test {
 protected:
  EnvironmentTest() {
    for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
      const char* value = std::getenv(name);
      saved_[name] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
      unsetenv(name);
    }
  }
  ~EnvironmentTest() override {
    for (const auto& [name, value] : saved_) {
      value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
  }

 private:
  std::map<const char*, std::optional<std::string>> saved_;
};

TEST(DurationTest, SpellsOutHoursMinutesAndSeconds) {
  EXPECT_EQ(spelledOutDuration(3725, "en_US"), "1 hour, 2 minutes, 5 seconds");
  EXPECT_EQ(spelledOutDuration(3725, "de_DE.UTF-8"), "1 Stunde, 2 Minuten und 5 Sekunden");
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

TEST_F(EnvironmentTest, LocaleFollowsTheOrderOfTheVariables) {
  EXPECT_EQ(userTimeLocale(), "en_US_POSIX");
  setenv("LANG", "fr_FR.UTF-8", 1);
  EXPECT_EQ(userTimeLocale(), "fr_FR.UTF-8");
  setenv("LC_TIME", "de_DE.UTF-8", 1);
  EXPECT_EQ(userTimeLocale(), "de_DE.UTF-8");
  setenv("LC_ALL", "ja_JP.UTF-8", 1);
  EXPECT_EQ(userTimeLocale(), "ja_JP.UTF-8");
  setenv("LC_ALL", "", 1);
  EXPECT_EQ(userTimeLocale(), "de_DE.UTF-8");
}

TEST_F(EnvironmentTest, CLocalesCountAsAmericanEnglish) {
  for (const char* name : {"C", "POSIX", "C.UTF-8"}) {
    setenv("LC_ALL", name, 1);
    EXPECT_EQ(userTimeLocale(), "en_US_POSIX") << name;
    EXPECT_EQ(KVLEncoding::duration(15), "15 seconds") << name;
  }
}

TEST_F(EnvironmentTest, DurationUsesTheUsersLocale) {
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  EXPECT_EQ(KVLEncoding::duration(5), "5 Sekunden");
}

}  // namespace
