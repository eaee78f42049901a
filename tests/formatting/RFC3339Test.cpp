// The two shared formatters, case by case.
#include <local/KVLExtensionsDateFormatter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Date;
using KVLExtensions::dateFromRFC3339;
using KVLExtensions::rfc3339;
using KVLExtensions::rfc3339nano;

constexpr double kMay2024 = 736259696;  // 2024-05-01 12:34:56 UTC
constexpr double kDay = 86400;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::optional<double> secondsOf(std::optional<Date> date) {
  if (!date) return std::nullopt;
  return date->secondsSinceReferenceDate();
}

std::optional<double> read(std::string_view text) {
  return secondsOf(dateFromRFC3339(text));
}

TEST(RFC3339Test, ReadsWholeSecondsAndNanoseconds) {
  EXPECT_EQ(read("2024-05-01T12:34:56Z"), kMay2024);
  EXPECT_EQ(read("2024-05-01T12:34:56.123456789Z"), kMay2024 + 0.123456789);
}

TEST(RFC3339Test, EachFormatterReadsItsOwnFormOnly) {
  EXPECT_EQ(secondsOf(rfc3339().dateFromString("2024-05-01T12:34:56Z")), kMay2024);
  EXPECT_EQ(rfc3339().dateFromString("2024-05-01T12:34:56.5Z"), std::nullopt);
  EXPECT_EQ(secondsOf(rfc3339nano().dateFromString("2024-05-01T12:34:56.5Z")), kMay2024 + 0.5);
  EXPECT_EQ(rfc3339nano().dateFromString("2024-05-01T12:34:56Z"), std::nullopt);
}

TEST(RFC3339Test, ReadsFractionsOfOneToNineDigits) {
  std::string digits;
  for (int count = 1; count <= 9; ++count) {
    digits += static_cast<char>('0' + count);
    const auto text = "2024-05-01T12:34:56." + digits + "Z";
    EXPECT_EQ(read(text), 736259696 + std::stod("0." + digits)) << text;
  }
  EXPECT_EQ(read("2024-05-01T12:34:56." + digits + "0Z"), std::nullopt);
  EXPECT_EQ(read("2024-05-01T12:34:56.Z"), std::nullopt);
  EXPECT_EQ(read("2024-05-01T12:34:56,5Z"), std::nullopt);
}

TEST(RFC3339Test, ReadsOffsets) {
  const std::pair<const char*, double> table[] = {
      {"Z", 0},           {"+00:00", 0},         {"-00:00", 0},          {"+0000", 0},
      {"+00", 0},         {"+01", -3600},        {"-01", 3600},          {"+0130", -5400},
      {"+01:30", -5400},  {"-01:30", 5400},      {"+14:00", -14 * 3600}, {"-12:00", 12 * 3600},
      {"+23:59", -86340}, {"-23:59", 86340},     {"-2359", 86340},       {"+05:45", -20700},
      {"-00:01", 60},     {"+23", -23 * 3600.0},
  };
  for (const auto& [offset, difference] : table) {
    EXPECT_EQ(read(std::string("2024-05-01T12:34:56") + offset), kMay2024 + difference) << offset;
    EXPECT_EQ(read(std::string("2024-05-01T12:34:56.25") + offset), kMay2024 + difference + 0.25)
        << offset;
  }
}

TEST(RFC3339Test, RefusesOffsetsBeyondADayOrOfAnotherForm) {
  for (const char* offset :
       {"",       "+",      "-",       "+1",      "+24:00",      "-24:00",    "+25:00", "+23:60",
        "+01:3",  "+013",   "+01:300", "+01300",  "+01:",        "+01:30:00", "GMT",    "UTC",
        "z",      "+1:30",  "ZZ",      "Z+00:00", "\u221201:00", "+00:00Z",   "--01",   "+-01",
        "+ 1:00", "+01-30", "EST",     "[UTC]",   "Z[UTC]"}) {
    EXPECT_EQ(read(std::string("2024-05-01T12:34:56") + offset), std::nullopt) << offset;
  }
}

TEST(RFC3339Test, RefusesWhatIsNoDate) {
  for (const char* text : {"",
                           "2024-05-01",
                           "2024-05-01T12:34Z",
                           "12:34:56Z",
                           "2024-05-01 12:34:56Z",
                           "2024-05-01t12:34:56Z",
                           "2024-05-01T12:34:56z",
                           "2024-5-1T12:34:56Z",
                           "24-05-01T12:34:56Z",
                           "02024-05-01T12:34:56Z",
                           "+2024-05-01T12:34:56Z",
                           "-001-05-01T12:34:56Z",
                           "2024/05/01T12:34:56Z",
                           "20240501T123456Z",
                           "2024-05-01T12:34:56",
                           " 2024-05-01T12:34:56Z",
                           "2024-05-01T12:34:56Z ",
                           "2024-05-01T12:34:56Z\n",
                           "2024-05-01T12:34:56ZX",
                           "2024-05-01T12:34: 6Z",
                           "2024-05-01T1 :34:56Z",
                           "2024-W18-3T12:34:56Z",
                           "2024-122T12:34:56Z",
                           "1714566896",
                           "now",
                           "2024-05-01T12.34.56Z",
                           "2024-05-01T-1:34:56Z",
                           "2024-05-01T12:34:56.-5Z",
                           "2024-05-01T12:34:56.5.5Z",
                           "2024-05-01T12:34:56.+5Z",
                           "2024-05-01T12:34:56 Z"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
  }
  using namespace std::string_view_literals;
  EXPECT_EQ(read("2024-05-01T12:34:56Z\0"sv), std::nullopt);
  EXPECT_EQ(read("\0"sv), std::nullopt);
}

TEST(RFC3339Test, RefusesEveryBeginningOfADate) {
  const std::string text = "2024-05-01T12:34:56.123456789+01:30";
  for (std::size_t size = 0; size < text.size(); ++size) {
    // An offset of hours alone is one, whatever could follow.
    const bool hoursOnly = text.substr(0, size).ends_with("+01");
    EXPECT_EQ(read(text.substr(0, size)).has_value(), hoursOnly) << text.substr(0, size);
  }
}

TEST(RFC3339Test, RefusesDigitsOutsideASCII) {
  EXPECT_EQ(read("\u0662\u0660\u0662\u0664-05-01T12:34:56Z"), std::nullopt);
  EXPECT_EQ(read("2024-05-01T12:34:5\uff16Z"), std::nullopt);
  EXPECT_EQ(read("2024-05-01T12:34:56.\u0661Z"), std::nullopt);
}

TEST(RFC3339Test, RefusesDaysThatDoNotExist) {
  for (const char* day : {"2024-02-30", "2023-02-29", "1900-02-29", "2100-02-29", "2024-04-31",
                          "2024-13-01", "2024-00-10", "2024-01-00", "2024-01-32", "2024-99-99"}) {
    EXPECT_EQ(read(std::string(day) + "T00:00:00Z"), std::nullopt) << day;
  }
  for (const char* day : {"2024-02-29", "2000-02-29", "0000-02-29", "2023-12-31", "9999-12-31"}) {
    EXPECT_NE(read(std::string(day) + "T00:00:00Z"), std::nullopt) << day;
  }
}

TEST(RFC3339Test, RefusesTimesThatDoNotExist) {
  for (const char* time : {"24:00:00", "25:00:00", "12:60:00", "12:00:61", "99:99:99"}) {
    EXPECT_EQ(read(std::string("2024-05-01T") + time + "Z"), std::nullopt) << time;
  }
  EXPECT_EQ(read("2024-05-01T23:59:59Z"), kMay2024 + 41103);
}

TEST(RFC3339Test, RefusesLeapSecondsWhichADateCannotHold) {
  EXPECT_EQ(read("2016-12-31T23:59:60Z"), std::nullopt);
  EXPECT_EQ(read("2016-12-31T23:59:60.5Z"), std::nullopt);
}

TEST(RFC3339Test, ReadsTheYears0000To9999InTheGregorianCalendar) {
  EXPECT_EQ(read("0000-01-01T00:00:00Z"), -63145526400.0);
  EXPECT_EQ(read("9999-12-31T23:59:59Z"), 252423993599.0);
  EXPECT_EQ(read("1970-01-01T00:00:00Z"), -Date::kReferenceDateSince1970);
  // No days are left out where the calendar was once changed.
  EXPECT_EQ(*read("1582-10-15T00:00:00Z") - *read("1582-10-04T00:00:00Z"), 11 * kDay);
}

TEST(RFC3339Test, WritesUTCWithFourDigitYear) {
  EXPECT_EQ(rfc3339().stringFromDate(Date(kMay2024)), "2024-05-01T12:34:56Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(kMay2024)), "2024-05-01T12:34:56.000000000Z");
  EXPECT_EQ(rfc3339().stringFromDate(Date(0)), "2001-01-01T00:00:00Z");
  EXPECT_EQ(rfc3339().stringFromDate(*dateFromRFC3339("0007-02-03T04:05:06Z")),
            "0007-02-03T04:05:06Z");
}

TEST(RFC3339Test, CutsFractionsTowardTheEarlierSecond) {
  EXPECT_EQ(rfc3339().stringFromDate(Date(kMay2024 + 0.999)), "2024-05-01T12:34:56Z");
  EXPECT_EQ(rfc3339().stringFromDate(Date(-0.25)), "2000-12-31T23:59:59Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(-0.25)), "2000-12-31T23:59:59.750000000Z");
  const double before1970 = -Date::kReferenceDateSince1970 - 0.5;
  EXPECT_EQ(rfc3339().stringFromDate(Date(before1970)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(before1970)), "1969-12-31T23:59:59.500000000Z");
}

TEST(RFC3339Test, WritesTheFewestDigitsThatReadBackAsTheSameDate) {
  for (const char* fraction : {"100000000", "123000000", "123456000", "000001000", "999999000"}) {
    const auto text = std::string("2024-05-01T12:34:56.") + fraction + "Z";
    EXPECT_EQ(rfc3339nano().stringFromDate(*dateFromRFC3339(text)), text);
  }
}

TEST(RFC3339Test, CutsDatesFinerThanANanosecondTowardTheEarlierOne) {
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(1.9e-9)), "2001-01-01T00:00:00.000000001Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(-1.9e-9)), "2000-12-31T23:59:59.999999998Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(5e-324)), "2001-01-01T00:00:00.000000000Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(-5e-324)), "2000-12-31T23:59:59.999999999Z");
  EXPECT_EQ(rfc3339().stringFromDate(Date(-5e-324)), "2000-12-31T23:59:59Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(std::nextafter(60.0, 0.0))),
            "2001-01-01T00:00:59.999999999Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(-0.0)), "2001-01-01T00:00:00.000000000Z");
}

TEST(RFC3339Test, WritesNothingForDatesWithoutAForm) {
  const double first = -63145526400.0;
  const double end = 252423993600.0;
  EXPECT_EQ(rfc3339().stringFromDate(Date(first)), "0000-01-01T00:00:00Z");
  EXPECT_EQ(rfc3339nano().stringFromDate(Date(std::nextafter(end, 0))),
            "9999-12-31T23:59:59.999970000Z");
  for (const double seconds : {std::nextafter(first, -kInfinity), end, 1e300, -1e300, kInfinity,
                               -kInfinity, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(rfc3339().stringFromDate(Date(seconds)), "") << seconds;
    EXPECT_EQ(rfc3339nano().stringFromDate(Date(seconds)), "") << seconds;
  }
  // Read all the same: the offset moves it out of the year 9999.
  EXPECT_EQ(rfc3339().stringFromDate(*dateFromRFC3339("9999-12-31T23:59:59-00:01")), "");
}

// The first use of the formatters too, as each test is a process of its own.
TEST(RFC3339FirstUseTest, ManyThreadsUseTheFormattersAtOnce) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 1000; ++round) {
        const Date date(kMay2024 + round);
        ASSERT_EQ(dateFromRFC3339(rfc3339nano().stringFromDate(date)), date);
        ASSERT_EQ(dateFromRFC3339(rfc3339().stringFromDate(date)), date);
      }
    });
  }
}

TEST(RFC3339Test, TheFormattersAreShared) {
  EXPECT_EQ(&rfc3339(), &rfc3339());
  EXPECT_EQ(&rfc3339nano(), &rfc3339nano());
  EXPECT_NE(&rfc3339(), &rfc3339nano());
}

}  // namespace
