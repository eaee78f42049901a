#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QDialog>
#include <QMainWindow>
#include <QMenuBar>
#include <QPointer>
#include <QTimer>
#include <functional>

namespace {

using kvl::qt::MenuView;
using kvltest::click;
using kvltest::eventually;
using kvltest::itemWithKey;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using kvltest::runPostedEvents;

// How the user chooses an item of an open menu.
enum class Way { mouse, key, submenu };

std::string nameOf(const testing::TestParamInfo<Way>& way) {
  switch (way.param) {
    case Way::mouse:
      return "Mouse";
    case Way::key:
      return "Key";
    case Way::submenu:
      return "Submenu";
  }
  return {};
}

// A menu whose item does something to the menu itself.
class MenuActionTest : public testing::TestWithParam<Way> {
 protected:
  // Chooses the item, whose action runs `work`.
  [[nodiscard]] bool chooseDoing(std::function<void()> work) {
    item->setAction([this, work = std::move(work)](const auto&) {
      ++sent;
      work();
    });
    if (!open(*view)) return false;
    if (GetParam() == Way::submenu) return chooseInSubmenu();
    if (GetParam() == Way::mouse) click(*view, view->actionOf(*item));
    if (GetParam() == Way::key) pressDownAndEnter(*view);
    return true;
  }

  std::unique_ptr<kvltest::QtApplication> application = std::make_unique<kvltest::QtApplication>();
  MenuItemRef item = MenuItem::itemWithTitle("Open");
  std::shared_ptr<Menu> below = menuOf({item});
  std::shared_ptr<Menu> menu =
      GetParam() == Way::submenu ? menuOf({itemWithSubmenu("More", below)}) : menuOf({item});
  std::unique_ptr<QWidget> window = std::make_unique<QWidget>();
  QPointer<MenuView> view = new MenuView(menu, window.get());
  int sent = 0;

 private:
  static void pressDownAndEnter(QMenu& shown) {
    QTest::keyClick(&shown, Qt::Key_Down);
    QTest::keyClick(&shown, Qt::Key_Enter);
  }
  [[nodiscard]] bool chooseInSubmenu() {
    auto* subview = view->actions()[0]->menu();
    view->setActiveAction(view->actions()[0]);
    if (!eventually([&] { return subview->isVisible(); })) return false;
    pressDownAndEnter(*subview);
    return true;
  }
};

TEST_P(MenuActionTest, MayDestroyTheView) {
  ASSERT_TRUE(chooseDoing([&] { delete view; }));
  EXPECT_EQ(sent, 1);
  EXPECT_FALSE(view);
}

TEST_P(MenuActionTest, MayDestroyTheWindowsOfTheApplication) {
  ASSERT_TRUE(chooseDoing([&] { window = nullptr; }));
  EXPECT_EQ(sent, 1);
  EXPECT_FALSE(view);
}

TEST_P(MenuActionTest, MayDestroyTheModel) {
  ASSERT_TRUE(chooseDoing([&] {
    item = nullptr;
    below = nullptr;
    menu = nullptr;
    view->setMenu(nullptr);
  }));
  EXPECT_EQ(sent, 1);
  EXPECT_TRUE(view->actions().isEmpty());
}

TEST_P(MenuActionTest, MayDestroyItsTarget) {
  auto target = std::make_shared<int>(1);
  item->setTarget(target);
  ASSERT_TRUE(chooseDoing([&] { target = nullptr; }));
  EXPECT_EQ(sent, 1);
}

TEST_P(MenuActionTest, MayRemoveAllItemsAndLookAtOnce) {
  ASSERT_TRUE(chooseDoing([&] {
    below->removeAllItems();
    menu->removeAllItems();
    view->refresh();
  }));
  EXPECT_EQ(sent, 1);
  EXPECT_TRUE(view->actions().isEmpty());
}

TEST_P(MenuActionTest, MayRunADialogWhileTheModelChanges) {
  ASSERT_TRUE(chooseDoing([&] {
    QDialog dialog;
    QTimer::singleShot(0, &dialog, [&] {
      below->removeAllItems();
      menu->removeAllItems();
      for (const char* title : {"x", "y"}) menu->addItem(MenuItem::itemWithTitle(title));
    });
    auto closeAtTheEnd = [&] {
      if (view->actions().size() == 2) dialog.accept();
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &dialog, closeAtTheEnd);
    timer.start();
    dialog.exec();
  }));
  EXPECT_EQ(sent, 1);
  EXPECT_EQ(view->actions().size(), 2);
}

TEST_P(MenuActionTest, MayDestroyTheViewFromADialog) {
  ASSERT_TRUE(chooseDoing([&] {
    QDialog dialog;
    QTimer::singleShot(0, &dialog, [&] {
      delete view;
      dialog.accept();
    });
    dialog.exec();
  }));
  EXPECT_EQ(sent, 1);
}

TEST_P(MenuActionTest, MayOpenTheMenuAgain) {
  ASSERT_TRUE(chooseDoing([&] { view->popup(QPoint(200, 200)); }));
  EXPECT_EQ(sent, 1);
  EXPECT_TRUE(eventually([&] { return view->isVisible(); }));
}

INSTANTIATE_TEST_SUITE_P(ByTheWay, MenuActionTest,
                         testing::Values(Way::mouse, Way::key, Way::submenu), nameOf);

class MenuLifetimeTest : public testing::Test {
 protected:
  kvltest::QtApplication application;
};

TEST_F(MenuLifetimeTest, AnActionThatIsChosenByItsKeysMayDestroyTheWindows) {
  auto window = std::make_unique<QMainWindow>();
  const auto item = itemWithKey("Close", "w");
  int sent = 0;
  item->setAction([&](const auto&) {
    ++sent;
    window = nullptr;
  });
  window->menuBar()->addMenu(
      new MenuView(menuOf({item}), QStringLiteral("File"), window->menuBar()));
  window->show();
  window->activateWindow();
  ASSERT_TRUE(eventually([&] { return window->isActiveWindow(); }));
  QTest::keyClick(window.get(), Qt::Key_W, Qt::ControlModifier);
  EXPECT_EQ(sent, 1);
}

TEST_F(MenuLifetimeTest, WhoeverHearsOfTheChoiceMayDestroyTheView) {
  auto view = std::make_unique<MenuView>(
      menuOf({itemWithSubmenu("More", menuOf({MenuItem::itemWithTitle("Open")}))}));
  QObject::connect(view.get(), &MenuView::itemChosen, [&](const MenuItemRef&) { view = nullptr; });
  view->actions()[0]->menu()->actions()[0]->trigger();
  EXPECT_EQ(view, nullptr);
}

TEST_F(MenuLifetimeTest, AViewIsDestroyedWhileItIsShown) {
  auto view =
      std::make_unique<MenuView>(menuOf({itemWithSubmenu("More", menuWithTitles({"below"}))}));
  ASSERT_TRUE(open(*view));
  view->setActiveAction(view->actions()[0]);
  ASSERT_TRUE(eventually([&] { return view->actions()[0]->menu()->isVisible(); }));
  view = nullptr;
  EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
}

TEST_F(MenuLifetimeTest, AViewIsDestroyedWhileItExecutes) {
  auto view = std::make_unique<MenuView>(menuWithTitles({"a"}));
  QTimer::singleShot(0, application.operator->(), [&] { view = nullptr; });
  EXPECT_EQ(view->exec(QPoint(100, 100)), nullptr);
}

TEST_F(MenuLifetimeTest, AViewIsDestroyedBeforeItTakesOverWhatHasChanged) {
  const auto menu = menuWithTitles({"a"});
  {
    MenuView view(menu);
    menu->items()[0]->setTitle("b");
    menu->addItem(MenuItem::itemWithTitle("c"));
  }
  runPostedEvents();
  menu->items()[0]->setTitle("d");
  menu->removeAllItems();
}

TEST_F(MenuLifetimeTest, TheViewKeepsItsModel) {
  auto menu = menuWithTitles({"a"});
  const std::weak_ptr<Menu> watched = menu;
  const std::weak_ptr<MenuItem> item = menu->items()[0];
  auto view = std::make_unique<MenuView>(menu);
  menu = nullptr;
  EXPECT_FALSE(watched.expired());
  view->actions()[0]->trigger();
  view = nullptr;
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(item.expired());
}

TEST_F(MenuLifetimeTest, AnItemThatLeftIsNotKept) {
  const auto menu = menuWithTitles({"a"});
  const std::weak_ptr<MenuItem> item = menu->items()[0];
  MenuView view(menu);
  menu->removeAllItems();
  EXPECT_TRUE(eventually([&] { return item.expired(); }));
}

TEST_F(MenuLifetimeTest, ASlotMayLookAtTheMenuInTheMiddleOfARefresh) {
  const auto item = MenuItem::itemWithTitle("a");
  const auto menu = menuOf({item});
  MenuView view(menu);
  QObject::connect(view.actionOf(*item), &QAction::changed, &view, [&] {
    view.refresh();
    menu->addItem(MenuItem::itemWithTitle("more"));
  });
  item->setTitle("b");
  runPostedEvents();
  EXPECT_TRUE(eventually([&] { return view.actions().size() == 2; }));
}

TEST_F(MenuLifetimeTest, AChangeInTheMiddleOfARefreshWaitsForItsEnd) {
  const auto item = MenuItem::itemWithTitle("a");
  const auto menu = menuOf({item});
  MenuView view(menu);
  QObject::connect(view.actionOf(*item), &QAction::changed, &view, [&] {
    menu->addItem(MenuItem::itemWithTitle("more"));
    view.refresh();
    runPostedEvents();  // which comes to an end
    EXPECT_EQ(view.actions().size(), 1);
  });
  item->setTitle("b");
  runPostedEvents();
  EXPECT_TRUE(eventually([&] { return view.actions().size() == 2; }));
}

TEST_F(MenuLifetimeTest, AnItemIsChosenInADialogThatAnActionOfTheHostRuns) {
  const auto item = MenuItem::itemWithTitle("a");
  int sent = 0;
  int sentInDialog = 0;
  item->setAction([&](const auto&) { ++sent; });
  MenuView view(menuOf({item}));
  auto* const own = view.addAction(QStringLiteral("host"));
  QObject::connect(own, &QAction::triggered, &view, [&] {
    QDialog dialog;
    QTimer::singleShot(0, &dialog, [&] {
      view.actionOf(*item)->trigger();
      sentInDialog = sent;
      dialog.accept();
    });
    dialog.exec();
  });
  ASSERT_TRUE(open(view));
  click(view, own);
  EXPECT_EQ(sentInDialog, 1);
  EXPECT_EQ(sent, 1);
}

TEST(MenuApplicationTest, ModelAndViewOutliveTheApplication) {
  kvltest::QtApplication application;
  const auto menu =
      menuOf({MenuItem::itemWithTitle("a"), itemWithSubmenu("More", menuWithTitles({"below"}))});
  auto view = std::make_unique<MenuView>(menu);
  ASSERT_TRUE(open(*view));
  menu->items()[0]->setTitle("b");
  application.end();
  menu->items()[0]->setTitle("c");
  menu->addItem(MenuItem::itemWithTitle("d"));
  menu->items()[1]->submenu()->removeAllItems();
  view->refresh();
  view->setMenu(nullptr);
  view = nullptr;
  menu->removeAllItems();
}

TEST(MenuApplicationTest, AModelThatChangesAfterTheApplicationDoesNoHarm) {
  kvltest::QtApplication application;
  const auto menu = menuWithTitles({"a"});
  auto view = std::make_unique<MenuView>(menu);
  view = nullptr;
  application.end();
  menu->items()[0]->setTitle("b");
  menu->addItem(MenuItem::itemWithTitle("c"));
}

TEST(MenuApplicationTest, TheNextApplicationIsToldAgain) {
  const auto menu = menuWithTitles({"a"});
  for (int i = 0; i < 2; ++i) {
    const kvltest::QtApplication application;
    MenuView view(menu);
    menu->addItem(MenuItem::itemWithTitle("b"));
    runPostedEvents();
    EXPECT_EQ(view.actions().size(), static_cast<qsizetype>(menu->itemCount()));
  }
}

}  // namespace
