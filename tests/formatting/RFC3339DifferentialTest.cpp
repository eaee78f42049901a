// Random dates against ICU's own formatter, and against decimal arithmetic on the text.
#include "tests/formatting/ReferenceDates.h"

#include <local/KVLExtensionsDateFormatter.h>

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>

namespace {

using kvl::Date;
using KVLExtensions::dateFromRFC3339;
using KVLExtensions::rfc3339;
using KVLExtensions::rfc3339nano;
using kvltest::nearestDouble;
using kvltest::referenceDate;

constexpr int kRounds = 20'000;
constexpr std::int64_t kFirst = -63145526400;
constexpr std::int64_t kLast = 252423993599;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr double kMillisecondsPerSecond = 1000;

class RandomDates {
 public:
  std::int64_t between(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(random_);
  }
  // Seconds since 2001 of any size: most are not near the years at the end.
  std::int64_t seconds() {
    const std::int64_t reach = std::int64_t{1} << between(0, 36);
    return std::clamp(between(-reach, reach), kFirst, kLast);
  }

 private:
  std::mt19937_64 random_{1};
};

// ICU's formatter for a pattern, in UTC and in the Gregorian calendar for all years.
class ICUFormatter {
 public:
  explicit ICUFormatter(const char* pattern)
      : format_(icu::UnicodeString::fromUTF8(pattern), icu::Locale("en_US_POSIX"), status_) {
    auto calendar = std::make_unique<icu::GregorianCalendar>(*icu::TimeZone::getGMT(),
                                                             icu::Locale("en_US_POSIX"), status_);
    calendar->setGregorianChange(-8.64e15, status_);
    format_.adoptCalendar(calendar.release());
    format_.setLenient(false);
    EXPECT_TRUE(U_SUCCESS(status_));
  }

  std::string write(double seconds) {
    icu::UnicodeString text;
    format_.format((seconds + Date::kReferenceDateSince1970) * kMillisecondsPerSecond, text);
    std::string result;
    return text.toUTF8String(result);
  }

  // Seconds since 2001.
  double read(const std::string& text) {
    UErrorCode status = U_ZERO_ERROR;
    const double milliseconds = format_.parse(icu::UnicodeString::fromUTF8(text), status);
    EXPECT_TRUE(U_SUCCESS(status)) << text;
    return milliseconds / kMillisecondsPerSecond - Date::kReferenceDateSince1970;
  }

 private:
  UErrorCode status_ = U_ZERO_ERROR;
  icu::SimpleDateFormat format_;
};

TEST(RFC3339DifferentialTest, WritesAndReadsWholeSecondsAsICUDoes) {
  ICUFormatter icu("uuuu'-'MM'-'dd'T'HH':'mm':'ssX");
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    const auto seconds = static_cast<double>(random.seconds());
    const auto text = rfc3339().stringFromDate(Date(seconds));
    ASSERT_EQ(text, icu.write(seconds));
    ASSERT_EQ(icu.read(text), seconds);
    ASSERT_EQ(dateFromRFC3339(text), Date(seconds));
  }
}

TEST(RFC3339DifferentialTest, ReadsOffsetsAsICUDoes) {
  ICUFormatter icu("uuuu'-'MM'-'dd'T'HH':'mm':'ssXX");
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    auto text = rfc3339().stringFromDate(Date(static_cast<double>(random.seconds())));
    text.pop_back();
    text += random.between(0, 1) == 0 ? '+' : '-';
    text += std::to_string(100 + random.between(0, 23)).substr(1);
    text += std::to_string(100 + random.between(0, 59)).substr(1);
    const auto date = dateFromRFC3339(text);
    ASSERT_TRUE(date) << text;
    ASSERT_EQ(date->secondsSinceReferenceDate(), icu.read(text)) << text;
  }
}

std::string withFraction(std::int64_t seconds, std::int64_t nanoseconds) {
  auto text = rfc3339().stringFromDate(Date(static_cast<double>(seconds)));
  text.back() = '.';
  return text + std::to_string(kNanosecondsPerSecond + nanoseconds).substr(1) + "Z";
}

TEST(RFC3339DifferentialTest, ReadsFractionsAsTheNearestDouble) {
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    const std::int64_t seconds = random.seconds();
    const std::int64_t nanoseconds = random.between(0, kNanosecondsPerSecond - 1);
    const auto date = dateFromRFC3339(withFraction(seconds, nanoseconds));
    ASSERT_TRUE(date);
    ASSERT_EQ(date->secondsSinceReferenceDate(), nearestDouble(seconds, nanoseconds))
        << withFraction(seconds, nanoseconds);
  }
}

// Halfway between two doubles, and the nanoseconds beside it: where rounding twice would show.
TEST(RFC3339DifferentialTest, RoundsOnceNextToHalfwayPoints) {
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    const std::int64_t seconds = random.seconds();
    const auto number = static_cast<double>(seconds);
    const double step = std::nextafter(std::fabs(number), 1e300) - std::fabs(number);
    const auto steps = static_cast<double>(random.between(0, 1 << 20));
    const double halfway = std::fmod((steps + 0.5) * step, 1.0);
    const auto base = static_cast<std::int64_t>(halfway * 1e9);
    for (std::int64_t nanoseconds = std::max<std::int64_t>(base - 1, 0);
         nanoseconds <= std::min<std::int64_t>(base + 1, kNanosecondsPerSecond - 1);
         ++nanoseconds) {
      const auto date = dateFromRFC3339(withFraction(seconds, nanoseconds));
      ASSERT_EQ(date, Date(nearestDouble(seconds, nanoseconds)))
          << withFraction(seconds, nanoseconds);
    }
  }
}

// Dates with a few characters changed, most of which are no dates any more.
TEST(RFC3339DifferentialTest, ReadsAndRefusesWhatTheReferenceDoes) {
  constexpr std::string_view kCharacters = "00112345669:+-.ZTz ";
  const std::vector<std::string> offsets = {"Z", "+01", "-0130", "+23:59", ""};
  RandomDates random;
  const auto below = [&random](std::size_t limit) {
    return static_cast<std::size_t>(random.between(0, static_cast<std::int64_t>(limit) - 1));
  };
  int accepted = 0;
  for (int round = 0; round < 4 * kRounds; ++round) {
    auto text = withFraction(random.seconds(), random.between(0, kNanosecondsPerSecond - 1));
    text.pop_back();
    text.resize(text.size() - below(2) * below(11));
    text += offsets[below(offsets.size())];
    for (auto changes = below(4); changes > 0; --changes) {
      text[below(text.size())] = kCharacters[below(kCharacters.size())];
    }
    const auto date = dateFromRFC3339(text);
    ASSERT_EQ(date, referenceDate(text)) << text;
    accepted += date ? 1 : 0;
  }
  EXPECT_GT(accepted, kRounds / 2);
}

TEST(RFC3339DifferentialTest, WhatWasReadIsWrittenSoThatItReadsTheSame) {
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    const auto text = withFraction(random.seconds(), random.between(0, kNanosecondsPerSecond - 1));
    const auto date = dateFromRFC3339(text);
    ASSERT_TRUE(date);
    const auto written = rfc3339nano().stringFromDate(*date);
    ASSERT_EQ(dateFromRFC3339(written), date) << text << " " << written;
    ASSERT_EQ(written.substr(0, 19), rfc3339().stringFromDate(*date).substr(0, 19));
  }
}

TEST(RFC3339DifferentialTest, MicrosecondsAreWrittenAsTheyWereRead) {
  RandomDates random;
  for (int round = 0; round < kRounds; ++round) {
    const std::int64_t seconds = random.between(-std::int64_t{1} << 32, std::int64_t{1} << 32);
    const auto text = withFraction(seconds, 1000 * random.between(0, 999'999));
    ASSERT_EQ(rfc3339nano().stringFromDate(*dateFromRFC3339(text)), text);
  }
}

// Any double at all: never later than the date, and the same date where a nanosecond can tell.
TEST(RFC3339DifferentialTest, AnyDateIsWrittenWithinANanosecond) {
  constexpr double kFinerThanNanoseconds = 1 << 23;
  RandomDates random;
  std::mt19937_64 bits(2);
  for (int round = 0; round < kRounds; ++round) {
    const auto seconds = static_cast<double>(random.seconds());
    const double number = seconds + std::ldexp(static_cast<double>(bits() >> 11), -53);
    const auto text = rfc3339nano().stringFromDate(Date(number));
    if (text.empty()) continue;
    const auto read = dateFromRFC3339(text)->secondsSinceReferenceDate();
    if (std::fabs(number) >= kFinerThanNanoseconds) {
      ASSERT_EQ(read, number) << text;
    } else {
      ASSERT_LE(read, number) << text;
      ASSERT_NEAR(read, number, 1.01e-9) << text;
    }
  }
}

}  // namespace
