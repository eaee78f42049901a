#include "tests/support/PlainImage.h"

#include <local/platform/Menu.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using kvl::ColourRole;
using kvl::FontRole;
using kvl::Menu;
using kvl::MenuAction;
using kvl::MenuItem;
using kvl::MenuItemBadge;

void expectBare(const MenuItem& item) {
  EXPECT_EQ(item.attributedTitle(), std::nullopt);
  EXPECT_EQ(item.subtitle(), std::nullopt);
  EXPECT_EQ(item.toolTip(), std::nullopt);
  EXPECT_EQ(item.keyEquivalent(), "");
  EXPECT_EQ(item.badge(), std::nullopt);
  EXPECT_EQ(item.image(), nullptr);
  EXPECT_FALSE(item.expectsImage());
  EXPECT_EQ(item.state(), MenuItem::State::off);
  EXPECT_FALSE(item.action());
  EXPECT_EQ(item.target().lock(), nullptr);
  EXPECT_TRUE(item.representedObject().isNull());
  EXPECT_EQ(item.identifier(), std::nullopt);
  EXPECT_EQ(item.submenu(), nullptr);
}

TEST(MenuItemTest, NewItemIsEnabledAndOffAndHasATitleOnly) {
  const auto item = MenuItem::itemWithTitle("Open");
  EXPECT_EQ(item->kind(), MenuItem::Kind::item);
  EXPECT_EQ(item->title(), "Open");
  EXPECT_TRUE(item->isEnabled());
  expectBare(*item);
}

TEST(MenuItemTest, NewSectionHeaderIsNotEnabled) {
  const auto header = MenuItem::sectionHeaderWithTitle("Recent");
  EXPECT_EQ(header->kind(), MenuItem::Kind::sectionHeader);
  EXPECT_EQ(header->title(), "Recent");
  EXPECT_FALSE(header->isEnabled());
  expectBare(*header);
}

TEST(MenuItemTest, NewSeparatorIsNotEnabledAndHasNoTitle) {
  const auto separator = MenuItem::separatorItem();
  EXPECT_EQ(separator->kind(), MenuItem::Kind::separator);
  EXPECT_EQ(separator->title(), "");
  EXPECT_FALSE(separator->isEnabled());
  expectBare(*separator);
}

TEST(MenuItemTest, StatesHaveThePlatformsValues) {
  EXPECT_EQ(static_cast<int>(MenuItem::State::on), 1);
  EXPECT_EQ(static_cast<int>(MenuItem::State::off), 0);
  EXPECT_EQ(static_cast<int>(MenuItem::State::mixed), -1);
}

TEST(MenuItemTest, GivesBackItsWords) {
  const auto item = MenuItem::itemWithTitle("Open");
  const kvl::AttributedText title{{{"Open", FontRole::menu, ColourRole::label},
                                   {"\nnow", FontRole::menuSmall, ColourRole::secondaryLabel}}};
  item->setTitle("Close");
  item->setAttributedTitle(title);
  item->setSubtitle("quietly");
  item->setToolTip("closes");
  item->setKeyEquivalent("w");
  EXPECT_EQ(item->title(), "Close");
  EXPECT_EQ(item->attributedTitle(), title);
  EXPECT_EQ(item->subtitle(), "quietly");
  EXPECT_EQ(item->toolTip(), "closes");
  EXPECT_EQ(item->keyEquivalent(), "w");
}

TEST(MenuItemTest, ShowsItsAttributedTitleInPlaceOfItsTitle) {
  const auto item = MenuItem::itemWithTitle("Open");
  EXPECT_EQ(item->shownTitle(), "Open");
  item->setAttributedTitle(kvl::AttributedText{{{.text = "Open "}, {.text = "now"}}});
  EXPECT_EQ(item->shownTitle(), "Open now");
  EXPECT_EQ(item->title(), "Open");
  item->setAttributedTitle(std::nullopt);
  EXPECT_EQ(item->shownTitle(), "Open");
}

TEST(MenuItemTest, GivesBackItsLooks) {
  const auto item = MenuItem::itemWithTitle("Open");
  const auto image = std::make_shared<kvltest::PlainImage>();
  item->setBadge(MenuItemBadge::updatesWithCount(3));
  item->setImage(image);
  item->setState(MenuItem::State::mixed);
  item->setEnabled(false);
  EXPECT_EQ(item->badge(), MenuItemBadge{3});
  EXPECT_EQ(item->image(), image);
  EXPECT_EQ(item->state(), MenuItem::State::mixed);
  EXPECT_FALSE(item->isEnabled());
}

TEST(MenuItemTest, ExpectsAnImageUntilItIsToldOtherwiseWhateverComes) {
  const auto item = MenuItem::itemWithTitle("Open");
  item->setImage(std::make_shared<kvltest::PlainImage>());
  EXPECT_FALSE(item->expectsImage());
  item->setExpectsImage(true);
  item->setImage(nullptr);
  EXPECT_TRUE(item->expectsImage());
  item->setExpectsImage(false);
  EXPECT_FALSE(item->expectsImage());
}

TEST(MenuItemTest, GivesBackWhatItDoes) {
  const auto item = MenuItem::itemWithTitle("Open");
  const MenuAction action([](const std::shared_ptr<MenuItem>&) {});
  const auto target = std::make_shared<int>(1);
  const kvl::Dictionary form{{"id", "x"}};
  const auto submenu = std::make_shared<Menu>();
  item->setAction(action);
  item->setTarget(target);
  item->setRepresentedObject(form);
  item->setIdentifier("x");
  item->setSubmenu(submenu);
  EXPECT_EQ(item->action(), action);
  EXPECT_EQ(item->target().lock(), target);
  EXPECT_TRUE(item->representedObject().isSameObject(form));
  EXPECT_EQ(item->identifier(), "x");
  EXPECT_EQ(item->submenu(), submenu);
}

TEST(MenuActionTest, CopiesAreEqualAndActionsMadeTwiceAreNot) {
  const auto handler = [](const std::shared_ptr<MenuItem>&) {};
  const MenuAction action(handler);
  const MenuAction& same = action;
  EXPECT_EQ(MenuAction(same), action);
  EXPECT_NE(MenuAction(handler), action);
  EXPECT_EQ(MenuAction(), MenuAction(nullptr));
}

TEST(MenuActionTest, AnEmptyFunctionIsNoAction) {
  EXPECT_FALSE(MenuAction(MenuAction::Handler()));
  MenuAction()(MenuItem::separatorItem());
}

class MenuActivationTest : public testing::Test {
 protected:
  MenuActivationTest() { item_->setAction(action_); }

  const std::shared_ptr<MenuItem> item_ = MenuItem::itemWithTitle("Open");
  std::vector<std::shared_ptr<MenuItem>> sent_;
  const MenuAction action_{
      [this](const std::shared_ptr<MenuItem>& item) { sent_.push_back(item); }};
};

TEST_F(MenuActivationTest, SendsTheActionWithTheItem) {
  EXPECT_TRUE(item_->activate());
  EXPECT_THAT(sent_, testing::ElementsAre(item_));
}

TEST_F(MenuActivationTest, DisabledItemSendsNothing) {
  item_->setEnabled(false);
  EXPECT_FALSE(item_->activate());
  EXPECT_THAT(sent_, testing::IsEmpty());
}

TEST_F(MenuActivationTest, ItemWithoutActionSendsNothing) {
  item_->setAction(nullptr);
  EXPECT_FALSE(item_->activate());
}

TEST_F(MenuActivationTest, TargetThatIsGoneReceivesNothing) {
  auto target = std::make_shared<int>(1);
  item_->setTarget(target);
  EXPECT_TRUE(item_->activate());
  target.reset();
  EXPECT_FALSE(item_->activate());
  EXPECT_EQ(sent_.size(), 1U);
}

TEST_F(MenuActivationTest, TargetIsHeldWeaklyExceptWhileItsActionRuns) {
  auto target = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = target;
  bool lived = false;
  item_->setTarget(target);
  item_->setAction([&](const std::shared_ptr<MenuItem>&) {
    target.reset();
    lived = !watched.expired();
  });
  EXPECT_TRUE(item_->activate());
  EXPECT_TRUE(lived);
  EXPECT_TRUE(watched.expired());
}

TEST_F(MenuActivationTest, ItemMayGoWhileItsActionRuns) {
  auto item = MenuItem::itemWithTitle("Close");
  item->setAction([&](const std::shared_ptr<MenuItem>& chosen) {
    item.reset();
    chosen->setAction(nullptr);
    EXPECT_EQ(chosen->title(), "Close");
  });
  EXPECT_TRUE(item->activate());
  EXPECT_EQ(item, nullptr);
}

}  // namespace
