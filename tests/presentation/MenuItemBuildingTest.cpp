#include "platform/serialisation/JSONReader.h"
#include "tests/presentation/MenuFixture.h"
#include "tests/support/UserEnvironment.h"

#include <local/KVLEncodingLocale.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::MenuItem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class MenuItemBuildingTest : public kvltest::MenuFixture {};

TEST_F(MenuItemBuildingTest, NoDescriptionGivesNoItemAndNoLine) {
  EXPECT_EQ(build(std::nullopt), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, ItemHasTheTextAsItStands) {
  const auto item = buildItem({{"text", "Open & \"close\"…"}});
  EXPECT_EQ(item->kind(), MenuItem::Kind::item);
  EXPECT_EQ(item->title(), "Open & \"close\"…");
  EXPECT_EQ(item->attributedTitle(), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, TextIsNotATemplate) {
  const Array locales{Dictionary{{"find", "%T"}, {"type", "duration"}, {"seconds", 5}}};
  EXPECT_EQ(buildItem({{"text", "in %T"}, {"locale", locales}})->title(), "in %T");
}

TEST_F(MenuItemBuildingTest, ItemWithoutAnyOtherKeyIsEmptyAndDisabled) {
  const auto item = buildItem({});
  EXPECT_EQ(item->title(), "");
  EXPECT_EQ(item->subtitle(), std::nullopt);
  EXPECT_EQ(item->keyEquivalent(), "");
  EXPECT_EQ(item->toolTip(), std::nullopt);
  EXPECT_EQ(item->badge(), std::nullopt);
  EXPECT_EQ(item->image(), nullptr);
  EXPECT_EQ(item->state(), MenuItem::State::off);
  EXPECT_FALSE(item->isEnabled());
  EXPECT_FALSE(item->action());
  EXPECT_EQ(item->target().lock(), nullptr);
  EXPECT_TRUE(item->representedObject().isNull());
  EXPECT_EQ(item->identifier(), std::nullopt);
  EXPECT_EQ(item->submenu(), nullptr);
  EXPECT_THAT(images_->requests, IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, DividerIsASeparatorAndNothingElse) {
  const auto item = build(Dictionary{{"type", "divider"},
                                     {"text", "Open"},
                                     {"tooltip", "tip"},
                                     {"icon", "a.png"},
                                     {"updates", "many"},
                                     {"form", Dictionary{}},
                                     {"subitems", Array{Dictionary{{"type", "item"}}}}});
  EXPECT_EQ(item->kind(), MenuItem::Kind::separator);
  EXPECT_EQ(item->title(), "");
  EXPECT_EQ(item->toolTip(), std::nullopt);
  EXPECT_FALSE(item->isEnabled());
  EXPECT_TRUE(item->representedObject().isNull());
  EXPECT_EQ(item->submenu(), nullptr);
  EXPECT_THAT(images_->requests, IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, MissingTypeGivesNoItemAndOneLineWithNothing) {
  EXPECT_EQ(build(Dictionary{{"text", "Open"}, {"updates", "many"}}), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unknown menu item type: "));
}

TEST_F(MenuItemBuildingTest, EmptyTypeIsUnknown) {
  EXPECT_EQ(build(Dictionary{{"type", ""}}), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("unknown menu item type: "));
}

TEST_F(MenuItemBuildingTest, AnyOtherTypeIsUnknownAndNamedInTheLog) {
  EXPECT_EQ(build(Dictionary{{"type", "Item"}}), nullptr);
  EXPECT_EQ(build(Dictionary{{"type", "button"}}), nullptr);
  EXPECT_THAT(log_.lines(),
              ElementsAre("unknown menu item type: Item", "unknown menu item type: button"));
}

TEST_F(MenuItemBuildingTest, TypeThatIsNoStringIsLoggedAndUnknown) {
  EXPECT_EQ(build(Dictionary{{"type", 5}}), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre("expect type as string in dictionary {type = 5}",
                                        "unknown menu item type: "));
}

TEST_F(MenuItemBuildingTest, EveryKeyOfTheWrongTypeIsLoggedAndCountsAsAbsent) {
  const auto item = buildItem({{"text", 1},
                               {"subtext", 1},
                               {"shortcut", 1},
                               {"updates", "1"},
                               {"tooltip", 1},
                               {"icon", 1},
                               {"state", 1},
                               {"form", "x"},
                               {"subitems", "x"}});
  EXPECT_EQ(item->title(), "");
  EXPECT_FALSE(item->isEnabled());
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          StartsWith("expect text as string in"), StartsWith("expect subtext as string in"),
          StartsWith("expect shortcut as string in"), StartsWith("expect updates as integer in"),
          StartsWith("expect tooltip as string in"), StartsWith("expect icon as string in"),
          StartsWith("expect state as string in"), StartsWith("expect form as dictionary in"),
          StartsWith("expect subitems as array in")));
}

TEST_F(MenuItemBuildingTest, NullCountsAsAbsentWithoutALine) {
  const auto item = buildItem({{"text", nullptr}, {"form", nullptr}, {"subitems", nullptr}});
  EXPECT_FALSE(item->isEnabled());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, SubtextIsRenderedWithTheLocales) {
  const kvltest::UserEnvironment user("en_US.UTF-8", "UTC");
  const Array locales{Dictionary{{"find", "%T"}, {"type", "duration"}, {"seconds", 5}}};
  const auto item = buildItem({{"text", "a"}, {"subtext", "in %T"}, {"locale", locales}});
  EXPECT_EQ(item->subtitle(), "in 5 seconds");
  EXPECT_EQ(item->title(), "a");
}

TEST_F(MenuItemBuildingTest, SubtextWithoutLocalesStandsAsItIs) {
  EXPECT_EQ(buildItem({{"subtext", "in %T"}})->subtitle(), "in %T");
  EXPECT_EQ(buildItem({{"subtext", "in %T"}, {"locale", nullptr}})->subtitle(), "in %T");
}

TEST_F(MenuItemBuildingTest, EmptySubtextGivesNoSecondLineAndRendersNoLocales) {
  const auto item = buildItem({{"subtext", ""}, {"locale", Array{Dictionary{}}}});
  EXPECT_EQ(item->subtitle(), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, ShortcutIsTheKeyEquivalentAsItStands) {
  EXPECT_EQ(buildItem({{"shortcut", "O"}})->keyEquivalent(), "O");
  EXPECT_EQ(buildItem({{"shortcut", "long one"}})->keyEquivalent(), "long one");
  EXPECT_EQ(buildItem({{"shortcut", ""}})->keyEquivalent(), "");
}

TEST_F(MenuItemBuildingTest, TooltipIsTheToolTipAnEmptyOneToo) {
  EXPECT_EQ(buildItem({{"tooltip", "tip"}})->toolTip(), "tip");
  EXPECT_EQ(buildItem({{"tooltip", ""}})->toolTip(), "");
  EXPECT_EQ(buildItem({})->toolTip(), std::nullopt);
}

TEST_F(MenuItemBuildingTest, OneUpdateAndMoreGiveABadge) {
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(buildItem({{"updates", 1}})->badge(), kvl::MenuItemBadge{1});
  EXPECT_EQ(buildItem({{"updates", 12}})->badge(), kvl::MenuItemBadge{12});
  EXPECT_EQ(buildItem({{"updates", kMost}})->badge(), kvl::MenuItemBadge{kMost});
}

TEST_F(MenuItemBuildingTest, ZeroAndNegativeUpdatesGiveNoBadge) {
  EXPECT_EQ(buildItem({{"updates", 0}})->badge(), std::nullopt);
  EXPECT_EQ(buildItem({{"updates", -3}})->badge(), std::nullopt);
}

TEST_F(MenuItemBuildingTest, StateOnOffAndMixed) {
  EXPECT_EQ(buildItem({{"state", "on"}})->state(), MenuItem::State::on);
  EXPECT_EQ(buildItem({{"state", "off"}})->state(), MenuItem::State::off);
  EXPECT_EQ(buildItem({{"state", "mixed"}})->state(), MenuItem::State::mixed);
}

TEST_F(MenuItemBuildingTest, AnyOtherStateLeavesTheItemOffWithoutALine) {
  EXPECT_EQ(buildItem({{"state", "ON"}})->state(), MenuItem::State::off);
  EXPECT_EQ(buildItem({{"state", ""}})->state(), MenuItem::State::off);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, FormEnablesTheItemAndCarriesTheAction) {
  const Dictionary form{{"id", "x"}, {"action", "/x"}};
  const auto item = buildItem({{"form", form}});
  EXPECT_TRUE(item->isEnabled());
  EXPECT_EQ(item->action(), action_);
  EXPECT_EQ(item->target().lock(), target_);
  EXPECT_TRUE(item->representedObject().isSameObject(form));
  EXPECT_EQ(item->identifier(), "x");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, ActionIsSentWithoutATargetButNotToOneThatIsGone) {
  int sent = 0;
  const kvl::MenuAction action([&sent](const std::shared_ptr<MenuItem>&) { ++sent; });
  const Dictionary description{{"type", "item"}, {"form", Dictionary{{"id", "x"}}}};
  EXPECT_TRUE(KVLEncoding::menuItem(description, images_, action, {})->activate());
  auto target = std::make_shared<int>(1);
  const auto item = KVLEncoding::menuItem(description, images_, action, target);
  target.reset();
  EXPECT_FALSE(item->activate());
  EXPECT_EQ(sent, 1);
}

TEST_F(MenuItemBuildingTest, EmptyFormIsAFormWithoutId) {
  const auto item = buildItem({{"form", Dictionary{}}});
  EXPECT_TRUE(item->isEnabled());
  EXPECT_EQ(item->action(), action_);
  EXPECT_EQ(item->identifier(), std::nullopt);
  EXPECT_EQ(item->representedObject(), kvl::Value(Dictionary{}));
  EXPECT_THAT(log_.lines(), ElementsAre("menu item with action missing id: {}"));
}

TEST_F(MenuItemBuildingTest, EmptyIdIsMissingAndTheFormIsInTheLog) {
  const auto item = buildItem({{"form", Dictionary{{"id", ""}}}});
  EXPECT_EQ(item->identifier(), std::nullopt);
  EXPECT_TRUE(item->activate());
  EXPECT_THAT(log_.lines(), ElementsAre("menu item with action missing id: {id = \"\"}"));
}

TEST_F(MenuItemBuildingTest, IdOfTheWrongTypeIsLoggedAndMissing) {
  EXPECT_EQ(buildItem({{"form", Dictionary{{"id", 7}}}})->identifier(), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre("expect id as string in dictionary {id = 7}",
                                        "menu item with action missing id: {id = 7}"));
}

TEST_F(MenuItemBuildingTest, ItemWithoutFormIsDisabledAndHasNoAction) {
  const auto item = buildItem({{"text", "Open"}});
  EXPECT_FALSE(item->isEnabled());
  EXPECT_FALSE(item->activate());
}

TEST_F(MenuItemBuildingTest, TitleReadsTheOtherKeysToo) {
  const auto header = build(Dictionary{{"type", "title"},
                                       {"text", "Recent"},
                                       {"tooltip", "tip"},
                                       {"shortcut", "r"},
                                       {"updates", 2},
                                       {"state", "on"},
                                       {"icon", "a.png"},
                                       {"form", Dictionary{{"id", "x"}}}});
  EXPECT_EQ(header->kind(), MenuItem::Kind::sectionHeader);
  EXPECT_EQ(header->title(), "Recent");
  EXPECT_EQ(header->toolTip(), "tip");
  EXPECT_EQ(header->keyEquivalent(), "r");
  EXPECT_EQ(header->badge(), kvl::MenuItemBadge{2});
  EXPECT_EQ(header->state(), MenuItem::State::on);
  EXPECT_TRUE(header->isEnabled());
  EXPECT_EQ(header->identifier(), "x");
  EXPECT_EQ(images_->requests.size(), 1U);
}

// Others begin and end as the keys do, or are the keys with something at their end.
TEST_F(MenuItemBuildingTest, KeysThatResembleTheKnownOnesMeanNothing) {
  const auto item = buildItem({{"stattate", "on"},
                               {"toolltip", "tip"},
                               {"shorrtcut", "s"},
                               {"updaates", 3},
                               {"iconicon", "a.png"},
                               {"formform", Dictionary{{"id", "x"}}},
                               {std::string_view("form\0", 5), Dictionary{{"id", "x"}}},
                               {"subiitems", Array{Dictionary{{"type", "item"}}}},
                               {"for", 1},
                               {"", 1}});
  EXPECT_EQ(item->state(), MenuItem::State::off);
  EXPECT_EQ(item->toolTip(), std::nullopt);
  EXPECT_EQ(item->keyEquivalent(), "");
  EXPECT_EQ(item->badge(), std::nullopt);
  EXPECT_EQ(item->submenu(), nullptr);
  EXPECT_FALSE(item->isEnabled());
  EXPECT_THAT(images_->requests, IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MenuItemBuildingTest, ItemOfAReadDocumentWithManyOtherKeysHasEverything) {
  std::string text = R"({"type":"item","text":"Open","tooltip":"tip","shortcut":"o","updates":2,)";
  for (int i = 0; i < 40; ++i) text += "\"key" + std::to_string(i) + "\":0,";
  text += R"("state":"mixed","icon":"a.png","form":{"id":"x"},"subitems":[{"type":"divider"}]})";
  const auto item = build(kvl::valueFromJSON(kvl::Data::fromText(text), nullptr)->dictionary());
  EXPECT_EQ(item->title(), "Open");
  EXPECT_EQ(item->toolTip(), "tip");
  EXPECT_EQ(item->keyEquivalent(), "o");
  EXPECT_EQ(item->badge(), kvl::MenuItemBadge{2});
  EXPECT_EQ(item->state(), MenuItem::State::mixed);
  EXPECT_EQ(item->identifier(), "x");
  EXPECT_EQ(item->submenu()->itemCount(), 1U);
  EXPECT_TRUE(item->expectsImage());
}

TEST_F(MenuItemBuildingTest, TextAndLocalesAreUnderTheKeysThatTheHostHasSet) {
  const auto text = std::exchange(KVLEncoding::KVLEncodingKeyText, "tooltip");
  const auto locale = std::exchange(KVLEncoding::KVLEncodingKeyLocale, "tokens");
  const Array tokens{Dictionary{{"find", "%T"}, {"type", "duration"}, {"seconds", 5}}};
  const auto item =
      buildItem({{"text", "a"}, {"tooltip", "b"}, {"subtext", "%T"}, {"tokens", tokens}});
  KVLEncoding::KVLEncodingKeyText = text;
  KVLEncoding::KVLEncodingKeyLocale = locale;
  EXPECT_EQ(item->title(), "b");
  EXPECT_EQ(item->toolTip(), "b");
  EXPECT_NE(item->subtitle(), "%T");
}

}  // namespace
