#include <local/platform/FontMeasurement.h>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

namespace {

using kvl::kDefaultMenuBarTextHeight;
using kvl::menuBarTextHeight;

class FixedMeasurement final : public kvl::FontMeasurement {
 public:
  explicit FixedMeasurement(double height) : height_(height) {}
  [[nodiscard]] kvl::Size menuBarTextSize(std::string_view text) override {
    lastText_ = text;
    return {100, height_};
  }
  [[nodiscard]] const std::string& lastText() const { return lastText_; }

 private:
  double height_;
  std::string lastText_;
};

class FontMeasurementTest : public testing::Test {
 protected:
  ~FontMeasurementTest() override { kvl::setFontMeasurement(nullptr); }

  static double heightWith(double measured) {
    kvl::setFontMeasurement(std::make_shared<FixedMeasurement>(measured));
    return menuBarTextHeight("A");
  }
};

TEST_F(FontMeasurementTest, WithoutAToolkitTextIsFifteenPointsHigh) {
  EXPECT_EQ(menuBarTextHeight("A"), 15);
}

TEST_F(FontMeasurementTest, TheToolkitMeasuresTheTextAndItsHeightCounts) {
  const auto measurement = std::make_shared<FixedMeasurement>(13.97);
  kvl::setFontMeasurement(measurement);
  EXPECT_EQ(menuBarTextHeight("A"), 13.97);
  EXPECT_EQ(measurement->lastText(), "A");
}

TEST_F(FontMeasurementTest, WhatIsNoHeightGivesTheDefault) {
  for (const double height : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(heightWith(height), kDefaultMenuBarTextHeight) << height;
  }
}

TEST_F(FontMeasurementTest, NoneTakesTheMeasurementAway) {
  EXPECT_EQ(heightWith(20), 20);
  kvl::setFontMeasurement(nullptr);
  EXPECT_EQ(menuBarTextHeight("A"), kDefaultMenuBarTextHeight);
}

}  // namespace
