#include <local/platform/Menu.h>

#include <gmock/gmock.h>

#include <memory>
#include <thread>

namespace {

using kvl::Menu;
using kvl::MenuItem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kDeep = 100'000;

// A menu with `depth` menus inside one another.
std::shared_ptr<Menu> nestedMenu(int depth) {
  auto menu = std::make_shared<Menu>();
  for (int i = 0; i < depth; ++i) {
    const auto item = MenuItem::itemWithTitle("more");
    item->setSubmenu(std::move(menu));
    menu = std::make_shared<Menu>();
    menu->addItem(item);
  }
  return menu;
}

std::weak_ptr<Menu> innermostMenu(std::shared_ptr<Menu> menu) {
  while (menu->itemCount() > 0) menu = menu->items().front()->submenu();
  return menu;
}

TEST(MenuTest, KeepsItemsInTheOrderInWhichTheyWereAdded) {
  Menu menu;
  EXPECT_THAT(menu.items(), IsEmpty());
  const auto first = MenuItem::itemWithTitle("a");
  const auto second = MenuItem::separatorItem();
  menu.addItem(first);
  menu.addItem(second);
  EXPECT_THAT(menu.items(), ElementsAre(first, second));
  EXPECT_EQ(menu.itemCount(), 2U);
}

TEST(MenuTest, AddsNoItemForNone) {
  Menu menu;
  menu.addItem(nullptr);
  EXPECT_EQ(menu.itemCount(), 0U);
}

TEST(MenuTest, ForgetsAllItemsAtOnce) {
  Menu menu;
  menu.addItem(MenuItem::itemWithTitle("a"));
  menu.removeAllItems();
  EXPECT_THAT(menu.items(), IsEmpty());
}

TEST(MenuTest, DestroyingDeeplyNestedMenusTakesLittleStack) {
  auto menu = nestedMenu(kDeep);
  const auto innermost = innermostMenu(menu);
  EXPECT_FALSE(innermost.expired());
  menu.reset();
  EXPECT_TRUE(innermost.expired());
}

TEST(MenuTest, DeeplyNestedMenuMayBeReplacedOrRemoved) {
  const auto item = MenuItem::itemWithTitle("top");
  item->setSubmenu(nestedMenu(kDeep));
  auto innermost = innermostMenu(item->submenu());
  item->setSubmenu(nullptr);
  EXPECT_TRUE(innermost.expired());
  const auto menu = nestedMenu(kDeep);
  innermost = innermostMenu(menu);
  menu->removeAllItems();
  EXPECT_EQ(menu->itemCount(), 0U);
  EXPECT_TRUE(innermost.expired());
}

TEST(MenuTest, ItemThatIsStillHeldKeepsItsSubmenu) {
  auto menu = nestedMenu(3);
  const auto inner = menu->items()[0]->submenu()->items()[0];
  menu.reset();
  EXPECT_EQ(inner->submenu()->items()[0]->title(), "more");
}

TEST(MenuTest, NestedMenusMayGoOnAnotherThread) {
  auto menu = nestedMenu(1000);
  const auto innermost = innermostMenu(menu);
  std::thread other([last = std::move(menu)] {});
  other.join();
  EXPECT_TRUE(innermost.expired());
}

}  // namespace
