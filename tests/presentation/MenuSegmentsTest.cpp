#include "tests/presentation/MenuFixture.h"

#include <local/platform/SegmentedControl.h>

namespace {

using kvl::ImageScaling;
using kvl::Menu;
using kvl::MenuItem;
using kvl::Segment;
using kvl::SegmentedControl;
using testing::ElementsAre;

// A segment with something in every field.
Segment fullSegment() {
  return {.enabled = true,
          .label = "old",
          .image = std::make_shared<kvltest::PlainImage>(),
          .imageScaling = ImageScaling::none,
          .menu = std::make_shared<Menu>(),
          .showsMenuIndicator = true,
          .toolTip = "old tip"};
}

TEST(MenuSegmentsTest, EmptyMenuGivesOneDisabledSegmentWithADash) {
  SegmentedControl control;
  KVLEncoding::applyMenu(Menu(), control);
  EXPECT_THAT(control.segments(), ElementsAre(Segment{.enabled = false, .label = "-"}));
}

TEST(MenuSegmentsTest, EmptyMenuLeavesToolTipAndMenuIndicatorAlone) {
  SegmentedControl control;
  control.setSegments({fullSegment(), Segment{.label = "other", .toolTip = "other tip"}});
  KVLEncoding::applyMenu(Menu(), control);
  EXPECT_THAT(control.segments(), ElementsAre(Segment{.enabled = false,
                                                      .label = "-",
                                                      .imageScaling = ImageScaling::none,
                                                      .showsMenuIndicator = true,
                                                      .toolTip = "old tip"}));
}

TEST(MenuSegmentsTest, EachItemGivesASegmentInOrder) {
  Menu menu;
  const auto plain = MenuItem::itemWithTitle("a");
  plain->setToolTip("tip");
  plain->setImage(std::make_shared<kvltest::PlainImage>());
  const auto parent = MenuItem::itemWithTitle("b");
  parent->setEnabled(false);
  parent->setSubmenu(std::make_shared<Menu>());
  menu.addItem(plain);
  menu.addItem(parent);
  SegmentedControl control;
  control.setSegments({fullSegment(), fullSegment(), fullSegment()});
  KVLEncoding::applyMenu(menu, control);
  constexpr auto kScaling = ImageScaling::proportionallyUpOrDown;
  EXPECT_THAT(control.segments(),
              ElementsAre(Segment{.label = "a", .imageScaling = kScaling, .toolTip = "tip"},
                          Segment{.enabled = false,
                                  .label = "b",
                                  .imageScaling = kScaling,
                                  .menu = parent->submenu(),
                                  .showsMenuIndicator = true}));
}

TEST(MenuSegmentsTest, SeparatorsAndSectionHeadersGiveDisabledSegmentsOfTheirTitles) {
  Menu menu;
  menu.addItem(MenuItem::sectionHeaderWithTitle("Recent"));
  menu.addItem(MenuItem::separatorItem());
  menu.addItem(MenuItem::itemWithTitle("a"));
  SegmentedControl control;
  KVLEncoding::applyMenu(menu, control);
  constexpr auto kScaling = ImageScaling::proportionallyUpOrDown;
  EXPECT_THAT(control.segments(),
              ElementsAre(Segment{.enabled = false, .label = "Recent", .imageScaling = kScaling},
                          Segment{.enabled = false, .imageScaling = kScaling},
                          Segment{.label = "a", .imageScaling = kScaling}));
}

TEST(MenuSegmentsTest, LabelIsTheTitleAndNotTheAttributedOne) {
  Menu menu;
  const auto item = MenuItem::itemWithTitle("a");
  item->setAttributedTitle(kvl::AttributedText{{{.text = "a\nb"}}});
  menu.addItem(item);
  SegmentedControl control;
  KVLEncoding::applyMenu(menu, control);
  EXPECT_EQ(control.segment(0)->label, "a");
}

TEST(MenuSegmentsTest, ChangeIsToldOnce) {
  Menu menu;
  for (const char* title : {"a", "b", "c"}) menu.addItem(MenuItem::itemWithTitle(title));
  SegmentedControl control;
  int calls = 0;
  const auto observation = control.observe([&] { ++calls; });
  KVLEncoding::applyMenu(menu, control);
  EXPECT_EQ(calls, 1);
}

}  // namespace
