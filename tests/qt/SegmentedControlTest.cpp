#include "tests/qt/SegmentRow.h"
#include "tests/support/PlainImage.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

#include <QSignalSpy>

namespace {

using kvl::Segment;
using kvl::SegmentedControl;
using kvl::qt::SegmentedControlView;
using kvltest::QtApplication;
using kvltest::SegmentRow;
using testing::ElementsAre;

TEST(SegmentedControlTest, ShowsOneButtonForEachSegmentInOrder) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}, {.label = "Three"}});
  EXPECT_THAT(row.names(), ElementsAre("One", "Two", "Three"));
  EXPECT_LT(row.button(0).x(), row.button(1).x());
  EXPECT_LT(row.button(1).x(), row.button(2).x());
}

TEST(SegmentedControlTest, ButtonsAreJoined) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  EXPECT_EQ(row.button(0).geometry().right() + 1, row.button(1).x());
}

TEST(SegmentedControlTest, ShowsNothingWithoutAControl) {
  const QtApplication application;
  SegmentedControlView view(nullptr);
  EXPECT_EQ(view.control(), nullptr);
  EXPECT_TRUE(kvltest::buttonsOf(view).empty());
  EXPECT_EQ(view.focusPolicy(), Qt::NoFocus);
}

TEST(SegmentedControlTest, FollowsEachPropertyOfASegment) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}});
  const auto menu = std::make_shared<kvl::Menu>();
  row.control->setSegment(
      0, {.enabled = false, .label = "Other", .menu = menu, .toolTip = "Tells more"});
  row.settle();
  EXPECT_THAT(row.names(), ElementsAre("Other"));
  EXPECT_FALSE(row.button(0).isEnabled());
  EXPECT_THAT(row.button(0).toolTip().toStdString(), testing::HasSubstr("Tells more"));
  EXPECT_EQ(qobject_cast<kvl::qt::MenuView*>(row.button(0).menu())->menu(), menu);
  row.control->setSegment(0, {.label = "Other"});
  row.settle();
  EXPECT_TRUE(row.button(0).isEnabled());
  EXPECT_TRUE(row.button(0).toolTip().isEmpty());
  EXPECT_EQ(row.button(0).menu(), nullptr);
}

TEST(SegmentedControlTest, KeepsTheButtonsThatStay) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}, {.label = "Two"}});
  const auto* first = &row.button(0);
  row.control->setSegments({{.label = "New"}, {.label = "Two"}, {.label = "Three"}});
  row.settle();
  EXPECT_THAT(row.names(), ElementsAre("New", "Two", "Three"));
  row.control->setSegmentCount(1);
  row.settle();
  EXPECT_THAT(row.names(), ElementsAre("New"));
  EXPECT_EQ(&row.button(0), first);
}

TEST(SegmentedControlTest, KeepsTheMenuViewOfASegmentWhoseMenuChanges) {
  const QtApplication application;
  SegmentRow row({{.label = "Sort", .menu = std::make_shared<kvl::Menu>()}});
  const auto* view = row.button(0).menu();
  const auto other = std::make_shared<kvl::Menu>();
  row.control->setSegment(0, {.label = "Sort", .menu = other});
  row.settle();
  ASSERT_EQ(row.button(0).menu(), view);
  EXPECT_EQ(qobject_cast<const kvl::qt::MenuView*>(view)->menu(), other);
}

TEST(SegmentedControlTest, ManyChangesBeforeTheLoopRunsAreTakenOverAtOnce) {
  const QtApplication application;
  SegmentRow row({{.label = "0"}});
  for (int i = 1; i <= 1000; ++i) row.control->setSegment(0, {.label = std::to_string(i)});
  EXPECT_THAT(row.names(), ElementsAre("0"));
  QApplication::processEvents();
  EXPECT_THAT(row.names(), ElementsAre("1000"));
}

TEST(SegmentedControlTest, ShowsAnotherControlAndForgetsTheFormer) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}});
  const std::weak_ptr<SegmentedControl> former = std::exchange(row.control, nullptr);
  const auto other = std::make_shared<SegmentedControl>();
  other->setSegments({{.label = "Other"}});
  row.view->setControl(other);
  EXPECT_TRUE(former.expired());
  EXPECT_THAT(row.names(), ElementsAre("Other"));
  row.view->setControl(nullptr);
  EXPECT_TRUE(row.names().empty());
}

TEST(SegmentedControlTest, LabelsAreShownAsTheyStand) {
  const QtApplication application;
  const SegmentRow row({{.label = "Fish & Chips"}});
  EXPECT_THAT(row.names(), ElementsAre("Fish & Chips"));
  // No letter after the ampersand becomes a key that presses the button.
  EXPECT_TRUE(row.button(0).shortcut().isEmpty());
}

TEST(SegmentedControlTest, LabelsStayOnOneLine) {
  const QtApplication application;
  const SegmentRow row({{.label = "two\nlines"}, {.label = "tab\there\x01"}});
  EXPECT_THAT(row.names(), ElementsAre("two lines", "tab here"));
  EXPECT_EQ(row.button(0).height(), row.button(1).height());
}

TEST(SegmentedControlTest, AToolTipIsNotTakenForMarkup) {
  const QtApplication application;
  const SegmentRow row({Segment{.toolTip = "<b>a</b> < b & c"}});
  EXPECT_THAT(row.button(0).toolTip().toStdString(),
              testing::HasSubstr("&lt;b&gt;a&lt;/b&gt; &lt; b &amp; c"));
}

TEST(SegmentedControlTest, TheToolTipIsTheNameWhereThereIsNoLabel) {
  const QtApplication application;
  const SegmentRow row({Segment{.label = " ", .toolTip = "Favourites\nof mine"}});
  EXPECT_THAT(row.names(), ElementsAre("Favourites"));
}

TEST(SegmentedControlTest, AMenuIndicatorTakesRoomExactlyWhereItIsWanted) {
  const QtApplication application;
  const auto menu = std::make_shared<kvl::Menu>();
  const SegmentRow row({{.label = "Sort"},
                        {.label = "Sort", .menu = menu},
                        {.label = "Sort", .showsMenuIndicator = true}});
  EXPECT_EQ(row.button(0).sizeHint(), row.button(1).sizeHint());
  EXPECT_GT(row.button(2).sizeHint().width(), row.button(0).sizeHint().width());
}

TEST(SegmentedControlTest, AnImageTakesRoomBeforeItHasBeenDrawn) {
  const QtApplication application;
  const SegmentRow row(
      {{.label = "One"}, {.label = "One", .image = std::make_shared<kvltest::PlainImage>()}});
  EXPECT_GT(row.button(1).sizeHint().width(), row.button(0).sizeHint().width());
}

TEST(SegmentedControlTest, ALabelOfAMegabyteIsCut) {
  const QtApplication application;
  const SegmentRow row({{.label = std::string(1 << 20, 'x')}});
  EXPECT_LT(row.names()[0].size(), 5000U);
  EXPECT_LT(row.button(0).sizeHint().width(), 400);
}

TEST(SegmentedControlTest, AThousandSegmentsFitIntoAnyWindow) {
  const QtApplication application;
  const SegmentRow row(std::vector<Segment>(1000, {.label = "Segment"}));
  EXPECT_EQ(row.names().size(), 1000U);
  EXPECT_LT(row.view->minimumSizeHint().width(), 400);
}

std::vector<int> widthsOf(const SegmentRow& row) {
  std::vector<int> widths;
  for (const auto* button : kvltest::buttonsOf(*row.view)) widths.push_back(button->width());
  return widths;
}

// Gives the row so much less than it wishes.
void narrow(const SegmentRow& row, int less) {
  row.view->setFixedWidth(row.view->sizeHint().width() - less);
  row.settle();
}

TEST(SegmentedControlTest, WhereThereIsLittleRoomTheWidestGivesWayFirst) {
  const QtApplication application;
  const SegmentRow row(
      {{.label = "OK"}, {.label = "Synchronise everything at once"}, {.label = "Pause"}});
  const auto wishes = widthsOf(row);
  narrow(row, 60);
  EXPECT_THAT(widthsOf(row), ElementsAre(wishes[0], wishes[1] - 60, wishes[2]));
}

TEST(SegmentedControlTest, SegmentsShareWhatIsLeftEvenly) {
  for (const bool rightToLeft : {false, true}) {
    const QtApplication application({.rightToLeft = rightToLeft});
    const SegmentRow row({{.label = std::string(20, 'x')},
                          {.label = "i"},
                          {.label = std::string(30, 'x')},
                          {.label = std::string(25, 'x')}});
    const int small = row.button(1).width();
    row.view->setFixedWidth(small + 3 * 50);
    row.settle();
    EXPECT_THAT(widthsOf(row), ElementsAre(50, small, 50, 50));
    const auto& first = row.button(rightToLeft ? 3 : 0);
    EXPECT_EQ(first.x(), 0);
    EXPECT_EQ(row.button(rightToLeft ? 2 : 1).x(), 50);
  }
}

TEST(SegmentedControlTest, SegmentsWithMoreRoomAgainAreAsWideAsTheyWish) {
  const QtApplication application;
  const SegmentRow row({{.label = "OK"}, {.label = "Synchronise everything at once"}});
  const auto wishes = widthsOf(row);
  narrow(row, 60);
  row.view->setFixedWidth(row.view->sizeHint().width());
  row.settle();
  EXPECT_EQ(widthsOf(row), wishes);
}

TEST(SegmentedControlTest, RunsFromRightToLeftWhereTheDesktopDoes) {
  const QtApplication application({.locale = "he_IL.UTF-8", .rightToLeft = true});
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  EXPECT_GT(row.button(0).x(), row.button(1).x());
}

}  // namespace
