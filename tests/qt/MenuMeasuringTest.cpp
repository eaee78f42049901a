// How often menus measure their entries as they open, and that it comes to the same.
#include "qt/menu/MenuContents.h"
#include "qt/menu/MenuLayout.h"
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QResizeEvent>
#include <QScreen>
#include <QStyleOptionMenuItem>
#include <algorithm>

namespace {

using kvl::qt::MenuContents;
using kvl::qt::MenuMetrics;
using kvl::qt::MenuView;
using kvltest::itemWithKey;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::menuWithTitles;
using kvltest::open;

// Counts how often an entry is measured, and whether its metrics are those of its font.
class WatchedView : public MenuView {
 public:
  using MenuView::MenuView;

  void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override {
    MenuView::initStyleOption(option, action);
    const bool isExact = option->fontMetrics == QFontMetrics(option->font);
    const bool isPainted = testAttribute(Qt::WA_WState_InPaintEvent);
    (isPainted ? paintedExactly : measuredExactly) &= isExact;
    if (action == ofHost) hostExactly &= isExact;
    if (!isPainted) ++measured;
  }

  void resizeEvent(QResizeEvent* event) override { lastSize = event->size(); }

  const QAction* ofHost = nullptr;
  QSize lastSize;
  mutable int measured = 0;
  mutable bool measuredExactly = true;
  mutable bool paintedExactly = true;
  mutable bool hostExactly = true;
};

// Measures everything once more when it gets its size, as `QMenu` does.
class RemeasuringView : public MenuView {
 public:
  using MenuView::MenuView;

 protected:
  bool event(QEvent* event) override {
    const bool handled = MenuView::event(event);
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): that is what the view leaves out
    return event->type() == QEvent::Resize ? QMenu::event(event) : handled;
  }
};

std::shared_ptr<Menu> menuWithItems(int count) {
  auto menu = std::make_shared<Menu>();
  for (int i = 0; i < count; ++i) {
    auto item = itemWithKey("Item " + std::to_string(i), std::string(1, "abc"[i % 3]));
    if (i % 4 == 0) item->setSubtitle("With a second line");
    menu->addItem(i % 7 == 0 ? MenuItem::separatorItem() : item);
  }
  return menu;
}

struct Places {
  QRect menu;
  std::vector<QRect> entries;
  friend bool operator==(const Places&, const Places&) = default;
};

Places placesIn(QMenu& menu, QPoint position, int first) {
  menu.popup(position, menu.actions().value(first));
  EXPECT_TRUE(QTest::qWaitForWindowExposed(&menu));
  Places places{menu.geometry(), {}};
  for (auto* action : menu.actions()) places.entries.push_back(menu.actionGeometry(action));
  menu.hide();
  return places;
}

class MenuMeasuringTest : public testing::Test {
 protected:
  kvltest::QtApplication application;
};

TEST_F(MenuMeasuringTest, OpeningMeasuresEachEntryOnce) {
  WatchedView view(menuWithItems(30));
  view.measured = 0;
  ASSERT_TRUE(open(view));
  EXPECT_EQ(view.measured, 30);
}

TEST_F(MenuMeasuringTest, AHostsViewHearsOfTheSizeThatItGets) {
  WatchedView view(menuWithItems(3));
  ASSERT_TRUE(open(view));
  EXPECT_EQ(view.lastSize, view.size());
}

TEST_F(MenuMeasuringTest, EntriesAreWhereAMenuThatMeasuresAgainHasThem) {
  const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
  for (const int count : {1, 20, 200}) {
    const auto menu = menuWithItems(count);
    MenuView view(menu);
    RemeasuringView other(menu);
    for (const auto& position : {screen.topLeft(), screen.center(), screen.bottomRight()})
      for (const int first : {-1, count / 2, count - 1})
        EXPECT_EQ(placesIn(view, position, first), placesIn(other, position, first))
            << count << " items at " << position.y() << ", entry " << first;
  }
}

TEST_F(MenuMeasuringTest, EntriesOfAShownMenuBecomeAsWideAsItsLeastWidth) {
  MenuView view(menuWithItems(3));
  ASSERT_TRUE(open(view));
  auto* const action = view.actions().last();
  const int before = view.actionGeometry(action).width();
  view.setMinimumWidth(view.width() + 100);
  EXPECT_EQ(view.actionGeometry(action).width(), before + 100);
}

TEST_F(MenuMeasuringTest, OnlyEntriesThatAreMeasuredHaveRoughMetrics) {
  WatchedView view(menuWithItems(5));
  view.ofHost = view.addAction(QStringLiteral("Quit"));
  ASSERT_TRUE(open(view));
  view.repaint();
  EXPECT_TRUE(view.paintedExactly);
  EXPECT_TRUE(view.hostExactly);
}

// It measures entries by itself.
TEST_F(MenuMeasuringTest, AStyleSheetHasTheEntriesMetricsAsTheyAre) {
  WatchedView view(menuWithItems(5));
  view.setStyleSheet(QStringLiteral("QMenu::item { padding: 4px; }"));
  view.measuredExactly = true;
  ASSERT_TRUE(open(view));
  EXPECT_TRUE(view.measuredExactly);
  EXPECT_GT(view.measured, 0);
}

// In such texts letters stand closer to one another, or are drawn together.
TEST_F(MenuMeasuringTest, EntriesHaveTheSizeOfTheirTextsAsTheyAreDrawn) {
  for (const char* title : {"AVAVAVAVAVAVAVAVAV", "fifi ffl To Wa Ve", "العربية"}) {
    MenuView view(menuWithTitles({title}));
    ASSERT_TRUE(open(view));
    const auto* contents = MenuContents::of(&view);
    auto* const action = view.actions().first();
    EXPECT_EQ(view.actionGeometry(action).size(),
              sizeOf(*contents->entry(action), contents->columns(), MenuMetrics(view.font()), 1000))
        << title;
    view.hide();
  }
}

}  // namespace
