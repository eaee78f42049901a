#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QMainWindow>
#include <QMenuBar>
#include <vector>

namespace {

using kvl::qt::MenuView;
using kvltest::click;
using kvltest::eventually;
using kvltest::itemWithKey;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::open;
using kvltest::Recorder;
using testing::ElementsAre;

// Three items that have changed their places in the menu that shows them.
class MenuMoveTest : public testing::Test {
 protected:
  void reverse() {
    menu->removeAllItems();
    for (const auto& item : {c, b, a}) menu->addItem(item);
    view.refresh();
  }

  kvltest::QtApplication application;
  Recorder recorder;
  const MenuItemRef a = recorder.of(itemWithKey("a", "o"));
  const MenuItemRef b = recorder.of(itemWithKey("b", "o"));
  const MenuItemRef c = recorder.of(itemWithKey("c", "p"));
  const std::shared_ptr<Menu> menu = menuOf({a, b, c});
  QMainWindow window;
  MenuView view{menu, QStringLiteral("File")};
};

TEST_F(MenuMoveTest, ItemsThatMovedAreTriggered) {
  reverse();
  std::vector<MenuItemRef> chosen;
  QObject::connect(&view, &MenuView::itemChosen,
                   [&](const MenuItemRef& item) { chosen.push_back(item); });
  for (auto* action : view.actions()) action->trigger();
  EXPECT_THAT(recorder.sent, ElementsAre(c, b, a));
  EXPECT_THAT(chosen, ElementsAre(c, b, a));
}

TEST_F(MenuMoveTest, ItemsThatMovedAreChosenWithTheMouse) {
  reverse();
  for (const auto& item : {a, b, c}) {
    ASSERT_TRUE(open(view));
    click(view, view.actionOf(*item));
    EXPECT_FALSE(view.isVisible());
  }
  EXPECT_THAT(recorder.sent, ElementsAre(a, b, c));
}

TEST_F(MenuMoveTest, ItemsThatMovedHaveTheirKeys) {
  window.menuBar()->addMenu(&view);
  window.show();
  window.activateWindow();
  ASSERT_TRUE(eventually([&] { return window.isActiveWindow(); }));
  reverse();
  QTest::keyClick(&window, Qt::Key_P, Qt::ControlModifier);
  QTest::keyClick(&window, Qt::Key_O, Qt::ControlModifier);  // the first of two
  EXPECT_THAT(recorder.sent, ElementsAre(c, b));
}

TEST_F(MenuMoveTest, ItemsThatMovedKeepTheirMarks) {
  for (const auto& item : {a, b, c}) item->setState(MenuItem::State::on);
  reverse();
  for (auto* action : view.actions()) {
    action->trigger();
    EXPECT_TRUE(action->isChecked());
  }
}

}  // namespace
