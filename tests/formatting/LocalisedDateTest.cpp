#include "platform/formatting/LocalisedTime.h"
#include "tests/support/UserEnvironment.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Date;
using kvl::formatting::DateStyle;
using kvl::formatting::localisedDate;
using kvl::formatting::localisedTimeOfDay;
using kvltest::UserEnvironment;

const Date kAfternoon = Date::since1970(1714574096);  // 2024-05-01T14:34:56Z

struct Written {
  const char* locale;
  const char* dateAndTime;
  const char* date;
  const char* time;
};

// What ICU 72 has from CLDR 42. There are narrow no-break spaces before the English "PM" and the
// Russian "г.", and right-to-left marks before the Arabic slashes.
const Written kWritten[] = {
    {"en_US.UTF-8", "May 1, 2024, 2:34\u202fPM", "May 1, 2024", "2:34\u202fPM"},
    {"en_US_POSIX", "May 1, 2024, 2:34\u202fPM", "May 1, 2024", "2:34\u202fPM"},
    {"en_GB.UTF-8", "1 May 2024, 14:34", "1 May 2024", "14:34"},
    {"de_DE.UTF-8", "01.05.2024, 14:34", "01.05.2024", "14:34"},
    {"fr_FR.UTF-8", "1 mai 2024, 14:34", "1 mai 2024", "14:34"},
    {"ja_JP.UTF-8", "2024/05/01 14:34", "2024/05/01", "14:34"},
    {"ar_EG.UTF-8", "٠١\u200f/٠٥\u200f/٢٠٢٤، ٢:٣٤ م", "٠١\u200f/٠٥\u200f/٢٠٢٤", "٢:٣٤ م"},
    {"ru_RU.UTF-8", "1 мая 2024\u202fг., 14:34", "1 мая 2024\u202fг.", "14:34"},
    {"pl_PL.UTF-8", "1 maj 2024, 14:34", "1 maj 2024", "14:34"},
};

TEST(LocalisedDateTest, WritesDatesAsTheLocaleDoes) {
  const UserEnvironment user("C", "UTC");
  for (const auto& written : kWritten) {
    SCOPED_TRACE(written.locale);
    const auto text = [&](DateStyle style) {
      return localisedDate(kAfternoon, style, written.locale);
    };
    EXPECT_EQ(text(DateStyle::dateAndTime), written.dateAndTime);
    EXPECT_EQ(text(DateStyle::date), written.date);
    EXPECT_EQ(text(DateStyle::time), written.time);
  }
}

TEST(LocalisedDateTest, WritesInTheScriptThatTheLocaleNames) {
  const UserEnvironment user("C", "UTC");
  const auto text = [](const char* locale) {
    return localisedDate(kAfternoon, DateStyle::date, locale).value_or("");
  };
  EXPECT_EQ(text("uz_UZ.UTF-8"), "1-may, 2024");
  EXPECT_EQ(text("uz_UZ.UTF-8@cyrillic"), "1 май, 2024");
}

TEST(LocalisedDateTest, CountsYearsInTheLocalesCalendar) {
  const UserEnvironment user("C", "UTC");
  EXPECT_EQ(localisedDate(kAfternoon, DateStyle::date, "th_TH.UTF-8"), "1 พ.ค. 2567");
  EXPECT_EQ(localisedDate(kAfternoon, DateStyle::date, "fa_IR.UTF-8"), "۱۲ اردیبهشت ۱۴۰۳");
}

TEST(LocalisedDateTest, ShowsTheUsersZone) {
  const UserEnvironment user("C", "America/New_York");
  const auto text = [] { return localisedDate(kAfternoon, DateStyle::dateAndTime, "de_DE"); };
  EXPECT_EQ(text(), "01.05.2024, 10:34");
  UserEnvironment::set("TZ", "Asia/Kathmandu");
  EXPECT_EQ(text(), "01.05.2024, 20:19");
  UserEnvironment::set("TZ", "Pacific/Kiritimati");
  EXPECT_EQ(text(), "02.05.2024, 04:34");
}

// What a German's clock shows so many minutes after a moment.
std::string germanText(double secondsSince1970, double minutes) {
  const auto date = Date::since1970(secondsSince1970).adding(60 * minutes);
  return localisedDate(date, DateStyle::dateAndTime, "de_DE").value_or("");
}

TEST(LocalisedDateTest, SkipsTheHourThatTheClockSkips) {
  const UserEnvironment user("C", "Europe/Berlin");
  constexpr double kClockChange = 1711846800;  // 2024-03-31T01:00:00Z
  EXPECT_EQ(germanText(kClockChange, -1), "31.03.2024, 01:59");
  EXPECT_EQ(germanText(kClockChange, 0), "31.03.2024, 03:00");
}

TEST(LocalisedDateTest, ShowsTheHourTwiceThatTheClockRepeats) {
  const UserEnvironment user("C", "America/New_York");
  constexpr double kClockChange = 1730613600;  // 2024-11-03T06:00:00Z
  EXPECT_EQ(germanText(kClockChange, -60), "03.11.2024, 01:00");
  EXPECT_EQ(germanText(kClockChange, 0), "03.11.2024, 01:00");
  EXPECT_EQ(germanText(kClockChange, 60), "03.11.2024, 02:00");
}

TEST(LocalisedDateTest, WritesDatesFarFromToday) {
  const UserEnvironment user("C", "UTC");
  EXPECT_EQ(germanText(-2208988800, 0), "01.01.1900, 00:00");
  EXPECT_EQ(germanText(253402300799, 0), "31.12.9999, 23:59");
}

TEST(LocalisedDateTest, HasNothingForWhatIsNoDate) {
  const auto none = Date(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(localisedDate(none, DateStyle::date, "en_US"), std::nullopt);
  EXPECT_EQ(localisedDate(Date(1e300), DateStyle::date, "en_US"), std::nullopt);
}

TEST(LocalisedDateTest, LocalesNobodyKnowsStillGiveAText) {
  for (const auto& locale : {std::string("xx_YY"), std::string(), std::string(5000, 'x')}) {
    EXPECT_NE(localisedDate(kAfternoon, DateStyle::dateAndTime, locale).value_or(""), "");
    EXPECT_NE(localisedTimeOfDay(3600, locale).value_or(""), "");
  }
}

TEST(LocalisedDateTest, TextsStayRightWhenManyLocalesTakeTurns) {
  const UserEnvironment user("C", "UTC");
  for (int round = 0; round < 3; ++round) {
    for (const char* locale : {"de_AT", "de_BE", "de_CH", "de_DE", "de_IT", "de_LI", "de_LU",
                               "da_DK", "nl_NL", "nb_NO", "sv_SE", "fi_FI"}) {
      EXPECT_TRUE(localisedDate(kAfternoon, DateStyle::date, locale)) << locale;
    }
    EXPECT_EQ(localisedDate(kAfternoon, DateStyle::date, "en_GB"), "1 May 2024");
  }
}

TEST(LocalisedTimeOfDayTest, CountsFromMidnight) {
  const auto text = [](std::int64_t seconds) { return localisedTimeOfDay(seconds, "de_DE"); };
  EXPECT_EQ(text(0), "00:00");
  EXPECT_EQ(text(59), "00:00");
  EXPECT_EQ(text(3600), "01:00");
  EXPECT_EQ(text(52496), "14:34");
  EXPECT_EQ(text(86399), "23:59");
  EXPECT_EQ(localisedTimeOfDay(3600, "en_US"), "1:00\u202fAM");
}

TEST(LocalisedTimeOfDayTest, LeavesOutWholeDays) {
  const auto text = [](std::int64_t seconds) { return localisedTimeOfDay(seconds, "de_DE"); };
  EXPECT_EQ(text(86400), "00:00");
  EXPECT_EQ(text(90000), "01:00");
  EXPECT_EQ(text(-1), "23:59");
  EXPECT_EQ(text(-3600), "23:00");
  EXPECT_EQ(text(-86400), "00:00");
  EXPECT_EQ(text(INT64_MAX), "15:30");
  EXPECT_EQ(text(INT64_MIN), "08:29");
}

TEST(LocalisedTimeOfDayTest, IsTheSameInEveryZone) {
  for (const char* zone : {"Europe/Berlin", "America/New_York", "Asia/Kathmandu"}) {
    const UserEnvironment user("C", zone);
    EXPECT_EQ(localisedTimeOfDay(9000, "de_DE"), "02:30") << zone;
  }
}

TEST(LocalisedDateTest, ThreadsMayWriteAtOnce) {
  const UserEnvironment user("C", "Europe/Berlin");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      const auto* locale = i % 2 == 0 ? "de_DE" : "en_GB";
      const auto* expected = i % 2 == 0 ? "01.05.2024, 16:34" : "1 May 2024, 16:34";
      for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(localisedDate(kAfternoon, DateStyle::dateAndTime, locale), expected);
        ASSERT_EQ(localisedTimeOfDay(round * 60, locale).value_or("").substr(0, 1), "0");
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

}  // namespace
