#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QPointer>

namespace {

using kvl::qt::MenuView;
using kvltest::eventually;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using kvltest::runPostedEvents;
using kvltest::titlesOf;
using testing::ElementsAre;

// Counts how often a menu is measured and told of its actions.
class CountingView : public MenuView {
 public:
  using MenuView::MenuView;

  [[nodiscard]] QSize sizeHint() const override {
    ++measured;
    return MenuView::sizeHint();
  }
  void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override {
    ++options;
    MenuView::initStyleOption(option, action);
  }

  mutable int measured = 0;
  mutable int options = 0;
};

void setItems(Menu& menu, const std::vector<MenuItemRef>& items) {
  menu.removeAllItems();
  for (const auto& item : items) menu.addItem(item);
}

class MenuUpdateTest : public testing::Test {
 protected:
  kvltest::QtApplication application;
};

TEST_F(MenuUpdateTest, ActionsOfItemsThatStayAreKept) {
  const auto a = MenuItem::itemWithTitle("a");
  const auto b = MenuItem::itemWithTitle("b");
  const auto c = MenuItem::itemWithTitle("c");
  const auto menu = menuOf({a, b, c});
  MenuView view(menu);
  auto* const actionOfA = view.actionOf(*a);
  auto* const actionOfC = view.actionOf(*c);
  const QPointer<QAction> actionOfB = view.actionOf(*b);
  setItems(*menu, {c, MenuItem::itemWithTitle("d"), a});
  view.refresh();
  EXPECT_THAT(titlesOf(view), ElementsAre("c", "d", "a"));
  EXPECT_EQ(view.actionOf(*a), actionOfA);
  EXPECT_EQ(view.actionOf(*c), actionOfC);
  EXPECT_EQ(view.actionOf(*b), nullptr);
  EXPECT_TRUE(eventually([&] { return !actionOfB; }));
}

TEST_F(MenuUpdateTest, EveryOrderOfTheSameItemsIsFollowed) {
  std::vector<MenuItemRef> items;
  for (const char* title : {"a", "b", "c", "d", "e"})
    items.push_back(MenuItem::itemWithTitle(title));
  items.push_back(items[1]);  // one is there twice
  const auto menu = std::make_shared<Menu>();
  MenuView view(menu);
  view.addAction(QStringLiteral("host"));
  std::ranges::sort(items);
  do {
    setItems(*menu, items);
    view.refresh();
    std::vector<MenuItemRef> shown;
    for (const auto* action : view.actions())
      if (const auto item = view.itemOf(action)) shown.push_back(item);
    ASSERT_EQ(shown, items);
    ASSERT_EQ(view.actions().back()->text(), QStringLiteral("host"));
  } while (std::ranges::next_permutation(items).found);
}

TEST_F(MenuUpdateTest, TheCurrentActionStaysCurrent) {
  const auto item = MenuItem::itemWithTitle("stays");
  const auto menu = menuOf({MenuItem::itemWithTitle("goes"), item});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  view.setActiveAction(view.actionOf(*item));
  setItems(*menu, {item, MenuItem::itemWithTitle("new")});
  runPostedEvents();
  EXPECT_EQ(view.activeAction(), view.actionOf(*item));
  setItems(*menu, {MenuItem::itemWithTitle("another"), item});
  runPostedEvents();
  EXPECT_EQ(view.activeAction(), view.actionOf(*item));
  item->setTitle("otherwise");
  runPostedEvents();
  EXPECT_EQ(view.activeAction(), view.actionOf(*item));
  EXPECT_TRUE(view.isVisible());
}

TEST_F(MenuUpdateTest, AnItemThatMovesIsStillTheCurrentOne) {
  const auto a = MenuItem::itemWithTitle("a");
  const auto b = MenuItem::itemWithTitle("b");
  const auto menu = menuOf({a, b});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  for (const auto& item : {a, b}) {
    view.setActiveAction(view.actionOf(*item));
    setItems(*menu, {b, a});
    runPostedEvents();
    EXPECT_EQ(view.activeAction(), view.actionOf(*item));
    setItems(*menu, {a, b});
    runPostedEvents();
    EXPECT_EQ(view.activeAction(), view.actionOf(*item));
  }
}

TEST_F(MenuUpdateTest, AShownMenuGrowsAndShrinksWithItsItems) {
  const auto menu = menuWithTitles({"a"});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  const QSize before = view.size();
  menu->addItem(MenuItem::itemWithTitle("something much wider than that"));
  runPostedEvents();
  EXPECT_GT(view.width(), before.width());
  EXPECT_GT(view.height(), before.height());
  EXPECT_EQ(view.size(), view.sizeHint());
  setItems(*menu, {MenuItem::itemWithTitle("a")});
  runPostedEvents();
  EXPECT_EQ(view.size(), before);
}

TEST_F(MenuUpdateTest, ASecondLineMakesRoomForItself) {
  const auto menu = menuWithTitles({"a", "b"});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  const int before = view.height();
  menu->items()[0]->setSubtitle("second line");
  runPostedEvents();
  EXPECT_GT(view.height(), before);
}

TEST_F(MenuUpdateTest, AMenuThatGrowsStaysOnTheScreen) {
  const auto menu = menuWithTitles({"a"});
  MenuView view(menu);
  const QRect screen = QApplication::primaryScreen()->availableGeometry();
  view.popup(screen.bottomRight() - QPoint(40, 40));
  ASSERT_TRUE(eventually([&] { return view.isVisible(); }));
  for (int i = 0; i < 200; ++i) menu->addItem(MenuItem::itemWithTitle("some more"));
  runPostedEvents();
  EXPECT_TRUE(screen.contains(view.geometry()));
}

TEST_F(MenuUpdateTest, AMenuThatOutgrowsTheScreenScrolls) {
  const auto menu = menuWithTitles({"first"});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  for (int i = 0; i < 200; ++i) menu->addItem(MenuItem::itemWithTitle("some more"));
  const auto last = MenuItem::itemWithTitle("last");
  menu->addItem(last);
  runPostedEvents();
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Up);  // from the first to the last
  if (view.activeAction() != view.actionOf(*last)) QTest::keyClick(&view, Qt::Key_Up);
  EXPECT_EQ(view.activeAction(), view.actionOf(*last));
  EXPECT_TRUE(view.rect().intersects(view.actionGeometry(view.actionOf(*last))));
}

TEST_F(MenuUpdateTest, AllChangesOfOneTurnAreOneLayout) {
  const auto menu = std::make_shared<Menu>();
  for (int i = 0; i < 300; ++i) menu->addItem(MenuItem::itemWithTitle("title"));
  CountingView view(menu);
  ASSERT_TRUE(open(view));
  runPostedEvents();
  view.options = 0;
  for (const auto& item : menu->items()) {
    item->setTitle("other");
    item->setEnabled(false);
    item->setToolTip("tip");
    item->setState(MenuItem::State::on);
  }
  QCoreApplication::sendPostedEvents(&view);
  // Once for the size, and once for the new size; painting takes those that are on the screen.
  EXPECT_LE(view.options, 3 * 300);
}

TEST_F(MenuUpdateTest, AnItemThatIsSetToWhatItWasCostsNoLayout) {
  const auto menu = menuWithTitles({"a", "b"});
  CountingView view(menu);
  ASSERT_TRUE(open(view));
  runPostedEvents();
  view.options = 0;
  view.measured = 0;
  menu->items()[0]->setTitle("a");
  QCoreApplication::sendPostedEvents(&view);
  EXPECT_EQ(view.options, 0);
  EXPECT_EQ(view.measured, 0);
}

TEST_F(MenuUpdateTest, ItemsMayLeaveWhileTheMenuIsShown) {
  const auto menu = menuWithTitles({"a", "b", "c"});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  menu->removeAllItems();
  runPostedEvents();
  EXPECT_TRUE(view.actions().isEmpty());
  EXPECT_EQ(view.activeAction(), nullptr);
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Enter);
  QTest::mouseClick(&view, Qt::LeftButton, {}, view.rect().center());
  QTest::keyClick(&view, Qt::Key_Escape);
  EXPECT_FALSE(view.isVisible());
}

TEST_F(MenuUpdateTest, AnotherMenuMayBeSetWhileOneIsShown) {
  MenuView view(menuWithTitles({"a", "b"}));
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  view.setMenu(menuWithTitles({"c", "d", "e"}));
  EXPECT_THAT(titlesOf(view), ElementsAre("c", "d", "e"));
  EXPECT_EQ(view.size(), view.sizeHint());
  view.setMenu(nullptr);
  EXPECT_TRUE(view.actions().isEmpty());
  EXPECT_TRUE(view.isVisible());
}

TEST_F(MenuUpdateTest, TheMenuThatWasShownBeforeIsNotFollowedAnyMore) {
  const auto before = menuWithTitles({"a"});
  const auto item = before->items()[0];
  MenuView view(before);
  view.setMenu(menuWithTitles({"b"}));
  before->addItem(MenuItem::itemWithTitle("c"));
  item->setTitle("d");
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("b"));
}

TEST_F(MenuUpdateTest, AnItemThatIsDisabledWhileItIsHighlightedIsNotChosen) {
  const auto item = MenuItem::itemWithTitle("a");
  int sent = 0;
  item->setAction([&](const auto&) { ++sent; });
  MenuView view(menuOf({item}));
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  ASSERT_EQ(view.activeAction(), view.actionOf(*item));
  item->setEnabled(false);
  runPostedEvents();
  QTest::keyClick(&view, Qt::Key_Enter);
  EXPECT_EQ(sent, 0);
  EXPECT_TRUE(view.isVisible());
}

class OpenSubmenuTest : public MenuUpdateTest {
 protected:
  [[nodiscard]] bool openBoth() {
    if (!open(view)) return false;
    view.setActiveAction(view.actionOf(*more));
    return eventually([&] { return subview && subview->isVisible(); });
  }

  MenuItemRef more = itemWithSubmenu("More", menuWithTitles({"below"}));
  std::shared_ptr<Menu> menu = menuOf({MenuItem::itemWithTitle("a"), more});
  MenuView view{menu};
  QPointer<QMenu> subview = view.actionOf(*more)->menu();
};

TEST_F(OpenSubmenuTest, GoesAwayWithItsItem) {
  ASSERT_TRUE(openBoth());
  setItems(*menu, {MenuItem::itemWithTitle("a")});
  EXPECT_TRUE(eventually([&] { return !subview; }));
  EXPECT_TRUE(view.isVisible());
  QTest::keyClick(&view, Qt::Key_Down);
  EXPECT_EQ(view.activeAction(), view.actions()[0]);
}

TEST_F(OpenSubmenuTest, ClosesWhenItsItemIsDisabled) {
  ASSERT_TRUE(openBoth());
  more->setEnabled(false);
  EXPECT_TRUE(eventually([&] { return !subview->isVisible(); }));
  EXPECT_TRUE(view.isVisible());
}

TEST_F(OpenSubmenuTest, ShowsAnotherSubmenuInItsPlace) {
  ASSERT_TRUE(openBoth());
  more->setSubmenu(menuWithTitles({"x", "y"}));
  runPostedEvents();
  ASSERT_TRUE(subview);
  EXPECT_TRUE(subview->isVisible());
  EXPECT_THAT(titlesOf(*subview), ElementsAre("x", "y"));
}

TEST_F(OpenSubmenuTest, GoesAwayWhenTheItemHasNoneAnyMore) {
  ASSERT_TRUE(openBoth());
  more->setSubmenu(nullptr);
  EXPECT_TRUE(eventually([&] { return !subview; }));
  EXPECT_EQ(view.actionOf(*more)->menu(), nullptr);
  EXPECT_TRUE(view.isVisible());
}

TEST_F(OpenSubmenuTest, StaysOpenWhenItsItemMoves) {
  ASSERT_TRUE(openBoth());
  setItems(*menu, {more, MenuItem::itemWithTitle("b")});
  runPostedEvents();
  ASSERT_TRUE(subview);
  EXPECT_TRUE(subview->isVisible());
  EXPECT_EQ(view.activeAction(), view.actionOf(*more));
}

TEST_F(MenuUpdateTest, MenusThatAreNestedDeeplyOpenOneByOne) {
  constexpr int kLevels = 300;
  auto menu = menuWithTitles({"deepest"});
  for (int i = 0; i < kLevels; ++i) menu = menuOf({itemWithSubmenu("more", menu)});
  MenuView view(menu);
  const QMenu* level = &view;
  int levels = 0;
  while (auto* action = level->actions().constFirst()) {
    action->hover();
    if (!action->menu()) break;
    level = action->menu();
    ++levels;
  }
  EXPECT_EQ(levels, kLevels);
  EXPECT_THAT(titlesOf(*level), ElementsAre("deepest"));
}

TEST_F(MenuUpdateTest, MenusThatShareTheirSubmenusManyTimesOverAreShown) {
  auto menu = menuWithTitles({"deepest"});
  for (int i = 0; i < 40; ++i)
    menu = menuOf({itemWithSubmenu("left", menu), itemWithSubmenu("right", menu)});
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  EXPECT_THAT(titlesOf(view), ElementsAre("left", "right"));
  EXPECT_LE(view.findChildren<QMenu*>().size(), 1000);
}

TEST_F(MenuUpdateTest, TenThousandItemsAreShown) {
  const auto menu = std::make_shared<Menu>();
  for (int i = 0; i < 10'000; ++i) menu->addItem(MenuItem::itemWithTitle("title"));
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  EXPECT_EQ(view.actions().size(), 10'000);
  menu->removeAllItems();
  runPostedEvents();
  EXPECT_TRUE(view.actions().isEmpty());
}

}  // namespace
