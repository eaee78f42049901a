#include "tests/qt/MenuScene.h"

#include <gtest/gtest.h>

#include <QScreen>

namespace {

using kvl::qt::MenuView;
using kvltest::eventually;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using kvltest::runPostedEvents;

constexpr std::size_t kMany = 200;

class MenuScrollTest : public testing::Test {
 protected:
  // Opens the menu and highlights its last item.
  [[nodiscard]] bool scrollToEnd() {
    if (!open(view)) return false;
    toEnd();
    return view.activeAction() == view.actions().back() && activeIsSeen();
  }
  // From no item to the first, and from there to the last.
  void toEnd() {
    QTest::keyClick(&view, Qt::Key_Down);
    QTest::keyClick(&view, Qt::Key_Up);
  }
  void keepItems(std::size_t first, std::size_t end) {
    const auto items = menu->items();
    menu->removeAllItems();
    for (std::size_t i = first; i < end; ++i) menu->addItem(items[i]);
  }
  [[nodiscard]] QRect placeOfActive() const { return view.actionGeometry(view.activeAction()); }
  [[nodiscard]] bool activeIsSeen() const { return view.rect().contains(placeOfActive()); }

  kvltest::QtApplication application;
  const std::shared_ptr<Menu> menu = menuWithTitles(std::vector<std::string>(kMany, "item"));
  MenuView view{menu};
};

TEST_F(MenuScrollTest, AScrolledMenuStaysWhereItIsWhenATitleChanges) {
  ASSERT_TRUE(scrollToEnd());
  const int before = placeOfActive().top();
  const QPoint place = view.pos();
  for (const auto& item : {menu->items().front(), menu->items().back()}) {
    item->setTitle("Item");
    runPostedEvents();
    EXPECT_EQ(placeOfActive().top(), before);
    EXPECT_EQ(view.pos(), place);
  }
}

TEST_F(MenuScrollTest, TheSizeOfAMenuDoesNotDependOnWhereItIsScrolledTo) {
  ASSERT_TRUE(open(view));
  const QSize before = view.sizeHint();
  toEnd();
  EXPECT_LT(view.actionGeometry(view.actions().front()).top(), 0);
  EXPECT_EQ(view.sizeHint(), before);
}

TEST_F(MenuScrollTest, TheHighlightedItemIsSeenWhenItemsLeaveOrCome) {
  ASSERT_TRUE(scrollToEnd());
  keepItems(kMany / 4, kMany);
  runPostedEvents();
  EXPECT_TRUE(activeIsSeen());
  EXPECT_LT(view.actionGeometry(view.actions().front()).top(), 0);
  for (int i = 0; i < 50; ++i) menu->addItem(MenuItem::itemWithTitle("more"));
  runPostedEvents();
  EXPECT_TRUE(activeIsSeen());
  QTest::keyClick(&view, Qt::Key_Home);
  QTest::keyClick(&view, Qt::Key_Up);
  EXPECT_EQ(view.activeAction(), view.actions().back());
  EXPECT_TRUE(activeIsSeen());
}

TEST_F(MenuScrollTest, AMenuThatFitsAgainShowsAllItsItems) {
  ASSERT_TRUE(scrollToEnd());
  keepItems(kMany - 2, kMany);
  runPostedEvents();
  for (auto* action : view.actions())
    EXPECT_TRUE(view.rect().contains(view.actionGeometry(action)));
  EXPECT_EQ(view.size(), view.sizeHint());
}

TEST_F(MenuScrollTest, AMenuThatOutgrowsTheScreenIsNotSaidToOpenAgain) {
  const auto growing = menuWithTitles({"a"});
  MenuView shown(growing);
  int opened = 0;
  QObject::connect(&shown, &QMenu::aboutToShow, [&] { ++opened; });
  ASSERT_TRUE(open(shown));
  for (std::size_t i = 0; i < kMany; ++i) growing->addItem(MenuItem::itemWithTitle("more"));
  runPostedEvents();
  EXPECT_EQ(opened, 1);
}

TEST_F(MenuScrollTest, ASubmenuThatOpenedToTheLeftGrowsToTheLeft) {
  const auto below = menuWithTitles({"below"});
  const auto more = itemWithSubmenu("More", below);
  MenuView top(menuOf({more}));
  const QRect screen = QApplication::primaryScreen()->availableGeometry();
  top.popup(QPoint(screen.right() - 5, 100));
  ASSERT_TRUE(eventually([&] { return top.isVisible(); }));
  auto* const subview = top.actionOf(*more)->menu();
  top.setActiveAction(top.actionOf(*more));
  ASSERT_TRUE(eventually([&] { return subview->isVisible(); }));
  ASSERT_LT(subview->x(), top.x());
  const QRect before = subview->geometry();
  below->addItem(MenuItem::itemWithTitle("something much wider than that"));
  runPostedEvents();
  EXPECT_GT(subview->width(), before.width());
  EXPECT_EQ(subview->geometry().right(), before.right());
}

}  // namespace
