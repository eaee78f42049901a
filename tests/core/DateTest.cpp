#include <local/platform/Date.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(DateTest, CountsFromTheReferenceDate) {
  EXPECT_EQ(kvl::Date(0).description(), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(kvl::Date::since1970(0).description(), "1970-01-01 00:00:00 +0000");
  EXPECT_DOUBLE_EQ(kvl::Date(1).secondsSince1970(), 978307201.0);
}

TEST(DateTest, PrintsFractionsCutDownward) {
  EXPECT_EQ(kvl::Date(0.9).description(), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(kvl::Date(-0.1).description(), "2000-12-31 23:59:59 +0000");
}

TEST(DateTest, DescribesDatesBeyondTheCalendarWithoutCrashing) {
  EXPECT_EQ(kvl::Date(1e300).description(), "1e+300 s after 2001-01-01 00:00:00 +0000");
  const kvl::Date none(std::numeric_limits<double>::quiet_NaN());
  EXPECT_NE(none.description().find("nan"), std::string::npos);
}

TEST(DateTest, ComparesAndSubtracts) {
  const kvl::Date early(10);
  const kvl::Date late = early.adding(5.5);
  EXPECT_LT(early, late);
  EXPECT_DOUBLE_EQ(late.secondsSince(early), 5.5);
  EXPECT_DOUBLE_EQ(early.secondsSince(late), -5.5);
}

TEST(DateTest, NowIsTheSystemsTime) {
  EXPECT_GT(kvl::Date::now(), kvl::Date(7e8));
}

}  // namespace
