#include "tests/presentation/MenuFixture.h"

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Menu;
using kvl::MenuItem;
using kvl::Value;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kDeep = 100'000;

Dictionary described(const char* text) {
  return {{"type", "item"}, {"text", text}};
}

Dictionary describedWith(const char* text, const Array& subitems) {
  auto description = described(text);
  description.set("subitems", subitems);
  return description;
}

std::vector<std::string> titlesOf(const Menu& menu) {
  std::vector<std::string> titles;
  for (const auto& item : menu.items()) titles.push_back(item->title());
  return titles;
}

class AddMenuItemsTest : public kvltest::MenuFixture {
 protected:
  Menu menu_;
};

TEST_F(AddMenuItemsTest, AppendsAnItemForEachDescriptionInOrder) {
  addItems(Array{described("a"), described("b"), Dictionary{{"type", "divider"}}}, menu_);
  EXPECT_THAT(titlesOf(menu_), ElementsAre("a", "b", ""));
}

TEST_F(AddMenuItemsTest, KeepsWhatIsInTheMenu) {
  menu_.addItem(MenuItem::itemWithTitle("first"));
  addItems(Array{described("a")}, menu_);
  addItems(Array{described("b")}, menu_);
  EXPECT_THAT(titlesOf(menu_), ElementsAre("first", "a", "b"));
}

TEST_F(AddMenuItemsTest, NoArrayNullAndAnEmptyArrayDoNothing) {
  menu_.addItem(MenuItem::itemWithTitle("first"));
  addItems(std::nullopt, menu_);
  addItems(std::optional<Array>(), menu_);
  addItems(Value(), menu_);
  addItems(Array{}, menu_);
  EXPECT_EQ(menu_.itemCount(), 1U);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AddMenuItemsTest, TakesTheArrayOutOfAValue) {
  addItems(Value(Array{described("a")}), menu_);
  addItems(Value("no array"), menu_);
  EXPECT_EQ(menu_.itemCount(), 1U);
}

TEST_F(AddMenuItemsTest, SkipsDescriptionsThatGiveNoItem) {
  addItems(Array{described("a"), Dictionary{{"type", "what"}}, Dictionary{}, described("b")},
           menu_);
  EXPECT_THAT(titlesOf(menu_), ElementsAre("a", "b"));
  EXPECT_THAT(log_.lines(),
              ElementsAre("unknown menu item type: what", "unknown menu item type: "));
}

TEST_F(AddMenuItemsTest, NullIsNoDescriptionAndWhatIsNoDictionaryHasNoType) {
  addItems(Array{nullptr, described("a"), 5, Array{}}, menu_);
  EXPECT_THAT(titlesOf(menu_), ElementsAre("a"));
  EXPECT_THAT(log_.lines(), ElementsAre("unknown menu item type: ", "unknown menu item type: "));
}

TEST_F(AddMenuItemsTest, ItemsShareTheActionAndTheTarget) {
  const Dictionary form{{"id", "x"}};
  addItems(Array{Dictionary{{"type", "item"}, {"form", form}},
                 Dictionary{{"type", "item"}, {"form", form}}},
           menu_);
  for (const auto& item : menu_.items()) {
    EXPECT_EQ(item->action(), action_);
    EXPECT_EQ(item->target().lock(), target_);
  }
}

class SubmenuTest : public kvltest::MenuFixture {
 protected:
  // Items within one another, as many as `depth`.
  static Dictionary nested(int depth) {
    auto description = described("innermost");
    for (int i = 1; i < depth; ++i) description = describedWith("more", Array{description});
    return description;
  }
};

TEST_F(SubmenuTest, SubitemsGiveASubmenuAndEnableTheItem) {
  const auto item = build(describedWith("top", {described("a"), described("b")}));
  EXPECT_TRUE(item->isEnabled());
  EXPECT_FALSE(item->action());
  ASSERT_NE(item->submenu(), nullptr);
  EXPECT_THAT(titlesOf(*item->submenu()), ElementsAre("a", "b"));
}

TEST_F(SubmenuTest, EmptySubitemsGiveNoSubmenuAndEnableNothing) {
  const auto item = build(describedWith("top", {}));
  EXPECT_FALSE(item->isEnabled());
  EXPECT_EQ(item->submenu(), nullptr);
}

TEST_F(SubmenuTest, FormAndSubitemsGoTogether) {
  auto description = describedWith("top", {described("a")});
  description.set("form", Dictionary{{"id", "x"}});
  const auto item = build(description);
  EXPECT_TRUE(item->isEnabled());
  EXPECT_EQ(item->identifier(), "x");
  EXPECT_NE(item->submenu(), nullptr);
}

TEST_F(SubmenuTest, SubitemsThatGiveNoItemsStillGiveAnEmptySubmenu) {
  const auto item = build(describedWith("top", {Dictionary{{"type", "what"}}, nullptr}));
  EXPECT_TRUE(item->isEnabled());
  ASSERT_NE(item->submenu(), nullptr);
  EXPECT_EQ(item->submenu()->itemCount(), 0U);
}

TEST_F(SubmenuTest, SubitemsGetTheSameImagesActionAndTarget) {
  auto inner = described("a");
  inner.set("form", Dictionary{{"id", "x"}});
  inner.set("icon", "a.png");
  const auto item = build(describedWith("top", {inner}))->submenu()->items()[0];
  EXPECT_EQ(item->action(), action_);
  EXPECT_EQ(item->target().lock(), target_);
  EXPECT_EQ(images_->requests.at(0).path, "a.png");
}

TEST_F(SubmenuTest, SubmenusOfSubmenusKeepTheirPlaces) {
  const auto item = build(describedWith(
      "top", {described("a"), describedWith("b", {describedWith("c", {described("d")})}),
              described("e")}));
  const auto top = item->submenu();
  EXPECT_THAT(titlesOf(*top), ElementsAre("a", "b", "e"));
  const auto middle = top->items()[1]->submenu();
  EXPECT_THAT(titlesOf(*middle), ElementsAre("c"));
  EXPECT_THAT(titlesOf(*middle->items()[0]->submenu()), ElementsAre("d"));
}

TEST_F(SubmenuTest, DescriptionsAreReadFromTopToBottom) {
  const auto unknown = [](const char* type) { return Dictionary{{"type", type}}; };
  auto top = describedWith("top", {unknown("1"), describedWith("a", {unknown("2")}), unknown("3")});
  top.set("form", Dictionary{});
  static_cast<void>(build(top));
  EXPECT_THAT(log_.lines(),
              ElementsAre("menu item with action missing id: {}", "unknown menu item type: 1",
                          "unknown menu item type: 2", "unknown menu item type: 3"));
}

TEST_F(SubmenuTest, TitleMayHaveSubitemsAndADividerHasNone) {
  auto title = describedWith("top", {described("a")});
  title.set("type", "title");
  EXPECT_NE(build(title)->submenu(), nullptr);
  title.set("type", "divider");
  EXPECT_EQ(build(title)->submenu(), nullptr);
}

TEST_F(SubmenuTest, AnyDepthIsBuiltAndDestroyed) {
  auto item = build(nested(kDeep));
  int depth = 1;
  for (auto inner = item; inner->submenu(); inner = inner->submenu()->items()[0]) ++depth;
  EXPECT_EQ(depth, kDeep);
  item.reset();
}

TEST_F(SubmenuTest, AnyDepthIsAddedToAMenu) {
  Menu menu;
  addItems(Array{nested(kDeep), described("after")}, menu);
  EXPECT_THAT(titlesOf(menu), ElementsAre("more", "after"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SubmenuTest, ASubmenuIsCompleteBeforeAnObserverSeesIt) {
  Menu menu;
  std::vector<std::size_t> seen;
  const auto observation = menu.observe([&] {
    const auto submenu = menu.items().back()->submenu();
    seen.push_back(submenu ? submenu->itemCount() : 0);
  });
  addItems(Array{describedWith("top", {described("a"), described("b")})}, menu);
  EXPECT_THAT(seen, ElementsAre(2U));
}

}  // namespace
