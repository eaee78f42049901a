#include "tests/support/PlainImage.h"

#include <local/platform/SegmentedControl.h>

#include <gmock/gmock.h>

#include <memory>

namespace {

using kvl::ImageScaling;
using kvl::Segment;
using kvl::SegmentedControl;
using testing::ElementsAre;

Segment labelled(const char* label) {
  Segment segment;
  segment.label = label;
  return segment;
}

TEST(SegmentedControlTest, BeginsWithoutSegments) {
  const SegmentedControl control;
  EXPECT_EQ(control.segmentCount(), 0U);
  EXPECT_EQ(control.segment(0), std::nullopt);
}

TEST(SegmentedControlTest, NewSegmentIsEnabledAndEmpty) {
  SegmentedControl control;
  control.setSegmentCount(1);
  EXPECT_EQ(control.segment(0), Segment{});
  EXPECT_TRUE(control.segment(0)->enabled);
  EXPECT_EQ(control.segment(0)->imageScaling, ImageScaling::proportionallyDown);
}

TEST(SegmentedControlTest, ProportionalUpOrDownHasThePlatformsValue) {
  EXPECT_EQ(static_cast<int>(ImageScaling::proportionallyUpOrDown), 3);
}

TEST(SegmentedControlTest, GivesBackASegment) {
  SegmentedControl control;
  control.setSegmentCount(2);
  const Segment segment{.enabled = false,
                        .label = "b",
                        .image = std::make_shared<kvltest::PlainImage>(),
                        .imageScaling = ImageScaling::none,
                        .menu = std::make_shared<kvl::Menu>(),
                        .showsMenuIndicator = true,
                        .toolTip = "tip"};
  control.setSegment(1, segment);
  EXPECT_THAT(control.segments(), ElementsAre(Segment{}, segment));
}

TEST(SegmentedControlTest, AnotherCountKeepsTheSegmentsThatRemain) {
  SegmentedControl control;
  control.setSegments({labelled("a"), labelled("b")});
  control.setSegmentCount(3);
  EXPECT_THAT(control.segments(), ElementsAre(labelled("a"), labelled("b"), Segment{}));
  control.setSegmentCount(1);
  EXPECT_THAT(control.segments(), ElementsAre(labelled("a")));
}

TEST(SegmentedControlTest, SettingASegmentBeyondTheLastDoesNothing) {
  SegmentedControl control;
  control.setSegments({labelled("a")});
  control.setSegment(1, labelled("b"));
  EXPECT_THAT(control.segments(), ElementsAre(labelled("a")));
}

}  // namespace
