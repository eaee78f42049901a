#include "tests/support/UserEnvironment.h"
#include "tools/kvlocal/MenuText.h"

#include <local/platform/Text.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace kvlocal {
namespace {

using kvl::Menu;
using kvl::MenuItem;
using Item = std::shared_ptr<MenuItem>;

std::string textOf(const Menu& menu) {
  return menuText(menu, {});
}

class MenuTextTest : public testing::Test {
 protected:
  Item add(const std::string& title) {
    auto item = MenuItem::itemWithTitle(title);
    menu.addItem(item);
    return item;
  }

  // Adds an item that opens a menu of one.
  static Item addNested(Menu& outer, const std::string& title, const std::string& nestedTitle) {
    auto item = MenuItem::itemWithTitle(title);
    auto inner = std::make_shared<Menu>();
    auto nested = MenuItem::itemWithTitle(nestedTitle);
    inner->addItem(nested);
    item->setSubmenu(std::move(inner));
    outer.addItem(std::move(item));
    return nested;
  }

  std::string drawing() const { return textOf(menu); }
  std::string json() const { return kvl::jsonText(menuValue(menu)); }

  const kvltest::UserEnvironment user;
  Menu menu;
};

TEST_F(MenuTextTest, AnEmptyMenuIsNoLine) {
  EXPECT_EQ(drawing(), "");
  EXPECT_EQ(json(), "[]");
}

TEST_F(MenuTextTest, SectionsStandInFrontOfTheirItems) {
  menu.addItem(MenuItem::sectionHeaderWithTitle("Section"));
  add("Item");
  EXPECT_EQ(drawing(), "Section\n    Item\n");
}

TEST_F(MenuTextTest, StatesAreMarks) {
  add("off");
  add("on")->setState(MenuItem::State::on);
  add("mixed")->setState(MenuItem::State::mixed);
  EXPECT_EQ(drawing(), "    off\n  x on\n  - mixed\n");
}

TEST_F(MenuTextTest, ASeparatorIsALine) {
  add("a");
  menu.addItem(MenuItem::separatorItem());
  add("b");
  EXPECT_EQ(drawing(), "    a\n    ----\n    b\n");
}

TEST_F(MenuTextTest, BadgesCountInWords) {
  add("a")->setBadge(kvl::MenuItemBadge::updatesWithCount(1));
  add("b")->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  EXPECT_EQ(drawing(), "    a  [1 update]\n    b  [3 updates]\n");
}

TEST_F(MenuTextTest, BadgesSpeakTheUsersLanguage) {
  kvltest::UserEnvironment::set("LANG", "de_DE.UTF-8");
  add("a")->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  EXPECT_EQ(drawing(), "    a  [3 Aktualisierungen]\n");
  EXPECT_EQ(json(), R"([{"kind":"item","title":"a","updates":3,"state":"off","enabled":true}])");
}

TEST_F(MenuTextTest, WhatAnItemHasBesideItsTitleStandsBehindIt) {
  const Item item = add("Title");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(2));
  item->setKeyEquivalent("n");
  item->setEnabled(false);
  item->setToolTip("Not shown");
  EXPECT_EQ(drawing(), "    Title  [2 updates] [key n] [disabled]\n");
}

TEST_F(MenuTextTest, OnlyItemsAreCalledDisabled) {
  menu.addItem(MenuItem::sectionHeaderWithTitle("Section"));
  menu.addItem(MenuItem::separatorItem());
  add("Item")->setEnabled(false);
  EXPECT_EQ(drawing(), "Section\n    ----\n    Item  [disabled]\n");
}

TEST_F(MenuTextTest, IdentifiersAreShownWhenAskedFor) {
  add("Title")->setIdentifier("a b");
  add("Other");
  EXPECT_EQ(drawing(), "    Title\n    Other\n");
  EXPECT_EQ(menuText(menu, {.showsIdentifiers = true}), "    Title  [id a b]\n    Other\n");
}

TEST_F(MenuTextTest, ASubtitleIsASecondLine) {
  add("Title")->setSubtitle("below");
  const auto section = MenuItem::sectionHeaderWithTitle("Section");
  section->setSubtitle("below");
  menu.addItem(section);
  EXPECT_EQ(drawing(), "    Title\n      below\nSection\n  below\n");
}

TEST_F(MenuTextTest, AnAttributedTitleGoesBeforeTheTitleAndHasLines) {
  const Item item = add("Title");
  item->setAttributedTitle(
      kvl::AttributedText{{{"Other", kvl::FontRole::menu}, {"\nbelow", kvl::FontRole::menuSmall}}});
  item->setKeyEquivalent("n");
  EXPECT_EQ(drawing(), "    Other  [key n]\n      below\n");
  EXPECT_EQ(json(), R"([{"kind":"item","title":"Other","subtitle":"below","shortcut":"n",)"
                    R"("state":"off","enabled":true}])");
}

TEST_F(MenuTextTest, SubMenusAreIndentedBelowTheirItem) {
  const Item nested = addNested(menu, "Outer", "Inner");
  const auto innermost = std::make_shared<Menu>();
  innermost->addItem(MenuItem::sectionHeaderWithTitle("Section"));
  innermost->addItem(MenuItem::itemWithTitle("Innermost"));
  nested->setSubmenu(innermost);
  nested->setState(MenuItem::State::on);
  add("After");
  EXPECT_EQ(drawing(),
            "    Outer >\n"
            "      x Inner >\n"
            "        Section\n"
            "            Innermost\n"
            "    After\n");
}

TEST_F(MenuTextTest, NothingEndsALineOrSteersTheTerminal) {
  const Item item = add("\x1B[2J\na\u202E");
  item->setSubtitle("b\r\n\x07");
  item->setKeyEquivalent("\x1B");
  item->setIdentifier(
      "\x9B"
      "c");
  EXPECT_EQ(menuText(menu, {.showsIdentifiers = true}),
            "    \\0033[2J\\na\\0342\\0200\\0256  [key \\0033] [id \\0233c]\n"
            "      b\\r\\n\\0007\n");
}

TEST_F(MenuTextTest, EachLineOfAnAttributedTitleIsEscaped) {
  add("")->setAttributedTitle(kvl::AttributedText{{{"a\tb\n\n\x1B", kvl::FontRole::menu}}});
  EXPECT_EQ(drawing(), "    a\\tb\n      \n      \\0033\n");
}

TEST_F(MenuTextTest, AsJSONAnItemTellsAllThatItHas) {
  const Item item = add("Title");
  item->setSubtitle("below");
  item->setToolTip("tip");
  item->setKeyEquivalent("n");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(2));
  item->setState(MenuItem::State::mixed);
  item->setIdentifier("id");
  item->setRepresentedObject(kvl::Dictionary{{"id", "id"}, {"action", "/"}});
  EXPECT_EQ(json(), R"([{"kind":"item","title":"Title","subtitle":"below","toolTip":"tip",)"
                    R"("shortcut":"n","updates":2,"state":"mixed","enabled":true,"id":"id",)"
                    R"("form":{"id":"id","action":"/"}}])");
}

TEST_F(MenuTextTest, AsJSONAMenuHoldsSectionsSeparatorsAndMenus) {
  menu.addItem(MenuItem::sectionHeaderWithTitle("Section"));
  menu.addItem(MenuItem::separatorItem());
  addNested(menu, "Outer", "Inner");
  EXPECT_EQ(json(), R"([{"kind":"section","title":"Section","enabled":false},)"
                    R"({"kind":"separator"},)"
                    R"({"kind":"item","title":"Outer","state":"off","enabled":true,)"
                    R"("menu":[{"kind":"item","title":"Inner","state":"off","enabled":true}]}])");
}

TEST_F(MenuTextTest, AnItemIsFoundInSubMenusToo) {
  add("a")->setIdentifier("a");
  const Item nested = addNested(menu, "b", "nested");
  nested->setIdentifier("nested");
  add("c")->setIdentifier("nested");
  EXPECT_EQ(itemWithIdentifier(menu, "nested"), nested);
  EXPECT_EQ(itemWithIdentifier(menu, "a"), menu.items().front());
  EXPECT_EQ(itemWithIdentifier(menu, "b"), nullptr);
  EXPECT_EQ(itemWithIdentifier(menu, ""), nullptr);
}

}  // namespace
}  // namespace kvlocal
