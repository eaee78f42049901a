#include "platform/formatting/UserLocale.h"
#include "tests/support/UserEnvironment.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using kvl::Date;
using kvl::formatting::userTimeLocale;
using kvl::formatting::userWallClock;
using kvltest::UserEnvironment;

// How far the user's clock is ahead of GMT, in minutes.
std::optional<double> minutesAhead(double secondsSince1970) {
  const auto date = Date::since1970(secondsSince1970);
  const auto wallClock = userWallClock(date);
  return wallClock ? std::optional(wallClock->secondsSince(date) / 60) : std::nullopt;
}

TEST(UserLocaleTest, FollowsTheOrderOfTheVariables) {
  const UserEnvironment user;
  EXPECT_EQ(userTimeLocale(), "en_US_POSIX");
  UserEnvironment::set("LANG", "fr_FR.UTF-8");
  EXPECT_EQ(userTimeLocale(), "fr_FR.UTF-8");
  UserEnvironment::set("LC_TIME", "de_DE.UTF-8");
  EXPECT_EQ(userTimeLocale(), "de_DE.UTF-8");
  UserEnvironment::set("LC_ALL", "ja_JP.UTF-8");
  EXPECT_EQ(userTimeLocale(), "ja_JP.UTF-8");
}

TEST(UserLocaleTest, EmptyVariablesDoNotCount) {
  const UserEnvironment user;
  UserEnvironment::set("LC_ALL", "");
  UserEnvironment::set("LC_TIME", "");
  EXPECT_EQ(userTimeLocale(), "en_US_POSIX");
  UserEnvironment::set("LANG", "pl_PL.UTF-8");
  EXPECT_EQ(userTimeLocale(), "pl_PL.UTF-8");
}

TEST(UserLocaleTest, CLocalesCountAsAmericanEnglish) {
  for (const char* name : {"C", "POSIX", "C.UTF-8"}) {
    const UserEnvironment user(name, "UTC");
    EXPECT_EQ(userTimeLocale(), "en_US_POSIX") << name;
  }
}

constexpr double kMayFirst2024 = 1714574096;  // 2024-05-01T14:34:56Z

TEST(UserWallClockTest, IsThatOfTheZone) {
  const UserEnvironment user("C", "UTC");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 0);
  UserEnvironment::set("TZ", "Europe/Berlin");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 120);
  UserEnvironment::set("TZ", "America/New_York");
  EXPECT_EQ(minutesAhead(kMayFirst2024), -240);
  UserEnvironment::set("TZ", "Asia/Kathmandu");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 345);
}

TEST(UserWallClockTest, TakesEveryFormOfTheZoneVariable) {
  const UserEnvironment user("C", ":Europe/Berlin");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 120);
  UserEnvironment::set("TZ", "/usr/share/zoneinfo/Asia/Kathmandu");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 345);
  UserEnvironment::set("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 120);
  UserEnvironment::set("TZ", "<+0330>-3:30");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 210);
}

TEST(UserWallClockTest, IsGreenwichTimeInAZoneThatNobodyKnows) {
  const UserEnvironment user("C", "Atlantis/Capital");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 0);
  UserEnvironment::set("TZ", "");
  EXPECT_EQ(minutesAhead(kMayFirst2024), 0);
}

TEST(UserWallClockTest, ChangesAtTheSecondOfTheClockChange) {
  const UserEnvironment user("C", "Europe/Berlin");
  constexpr double kSpring = 1711846800;  // 2024-03-31T01:00:00Z
  EXPECT_EQ(minutesAhead(kSpring - 1), 60);
  EXPECT_EQ(minutesAhead(kSpring), 120);
  constexpr double kAutumn = 1729990800;  // 2024-10-27T01:00:00Z
  EXPECT_EQ(minutesAhead(kAutumn - 1), 120);
  EXPECT_EQ(minutesAhead(kAutumn), 60);
}

TEST(UserWallClockTest, CutsFractionsTowardTheEarlier) {
  const UserEnvironment user("C", "UTC");
  EXPECT_EQ(userWallClock(Date::since1970(1.75)), Date::since1970(1));
  EXPECT_EQ(userWallClock(Date::since1970(-0.25)), Date::since1970(-1));
}

TEST(UserWallClockTest, HasNothingForDatesBeyondItsYears) {
  const UserEnvironment user("C", "Europe/Berlin");
  EXPECT_TRUE(userWallClock(Date::since1970(-62167219200)));  // 0000-01-01
  EXPECT_TRUE(userWallClock(Date::since1970(253402300799)));  // 9999-12-31
  for (const double seconds : {1e18, -1e18, 1e300, std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(userWallClock(Date(seconds))) << seconds;
  }
}

}  // namespace
