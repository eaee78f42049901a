#include "examples/qthost/DocumentView.h"
#include "tests/qt/host/HostFixture.h"

#include <local/qt/FormDialog.h>
#include <local/qt/SegmentedControlView.h>

#include <gmock/gmock.h>

#include <QMenuBar>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTimer>
#include <QToolButton>
#include <filesystem>
#include <fstream>

namespace {

using kvltest::eventually;

class HostMenuTest : public kvltest::HostTest {
 protected:
  static std::vector<std::string> titlesOf(const kvl::qt::MenuView& view) {
    std::vector<std::string> titles;
    for (const QAction* action : view.actions())
      if (const auto item = view.itemOf(action)) titles.push_back(item->shownTitle());
    return titles;
  }

  void document(const std::string& name, const std::string& text) const {
    // Whoever reads it meanwhile gets the old one or the new one.
    const auto path = directory.path() / "documents" / name;
    std::ofstream(path.string() + ".new") << text;
    std::filesystem::rename(path.string() + ".new", path);
  }

  static std::string menuWith(const std::string& title,
                              const std::string& items = R"({"type":"divider"})") {
    return R"({"menu":[{"type":"item","text":")" + title + R"(","subitems":[)" + items + "]}]}";
  }

  static QStringList barTitles(const qthost::MainWindow& window) {
    QStringList titles;
    for (const QAction* action : window.menuBar()->actions()) titles.append(action->text());
    return titles;
  }
};

TEST_F(HostMenuTest, TheMenuBarShowsTheServicesMenus) {
  const auto& window = openCompleteWindow();
  EXPECT_EQ(barTitles(window), QStringList({"&Window", "D&ocuments", "&Updates", "&Help"}));
}

TEST_F(HostMenuTest, AMenuIsOpenedAndReadByKeyboard) {
  auto& window = openCompleteWindow();
  QTest::keyClick(&window, Qt::Key_O, Qt::AltModifier);
  auto* menu = barMenu(window, "Documents");
  ASSERT_TRUE(eventually([&] { return menu->isVisible(); }));
  EXPECT_THAT(titlesOf(*menu),
              testing::ElementsAre("New report…", "Open recent", "", "On this computer",
                                   "Keep offline", "Encrypt", "Print"));
  QTest::keyClick(menu, Qt::Key_Right);
  ASSERT_TRUE(eventually([&] { return barMenu(window, "Updates")->isVisible(); }));
}

TEST_F(HostMenuTest, AnItemIsChosenByKeyboard) {
  auto& window = openCompleteWindow();
  QTest::keyClick(&window, Qt::Key_U, Qt::AltModifier);
  auto* menu = barMenu(window, "Updates");
  ASSERT_TRUE(eventually([&] { return menu->isVisible(); }));
  QTest::keyClick(menu, Qt::Key_Down);
  ASSERT_NE(menu->activeAction(), nullptr);
  QTest::keyClick(menu, Qt::Key_Return);
  EXPECT_TRUE(waitForLine(window, "install="));
}

TEST_F(HostMenuTest, AShortcutSubmitsAFormAndTheEventComesBack) {
  auto& window = openCompleteWindow();
  QTest::keyClick(&window, Qt::Key_I, Qt::ControlModifier);
  EXPECT_TRUE(waitForLine(window, R"(submitted {"method":"POST","query":"install=all")"));
  EXPECT_TRUE(
      eventually([&] { return window.statusBar()->currentMessage() == "Install now: 200 OK"; }));
}

TEST_F(HostMenuTest, TheStatusMenuIsOpenedByKeyboard) {
  const auto& window = openCompleteWindow();
  QToolButton* button = statusButton(window);
  ASSERT_TRUE(button != nullptr && button->isEnabled());
  auto* menu = qobject_cast<kvl::qt::MenuView*>(button->menu());
  std::vector<std::string> titles;
  // The button returns when the menu is closed.
  QObject::connect(menu, &QMenu::aboutToShow, menu, [&] {
    QTimer::singleShot(0, menu, [&] {
      titles = titlesOf(*menu);
      menu->close();
    });
  });
  button->setFocus();
  QTest::keyClick(button, Qt::Key_Space);
  EXPECT_THAT(titles,
              testing::ElementsAre("Local service", "Install now", "Remind me later", "", "Pause"));
}

TEST_F(HostMenuTest, ASegmentSubmitsItsForm) {
  auto& window = openCompleteWindow();
  auto* segments = window.findChild<kvl::qt::SegmentedControlView*>();
  ASSERT_TRUE(segments->isVisible());
  Q_EMIT segments->segmentChosen(0);
  EXPECT_TRUE(waitForLine(window, "synchronise=now"));
}

TEST_F(HostMenuTest, AMenuThatIsOpenStaysWhenTheSessionIsEstablishedAnew) {
  auto& window = openCompleteWindow();
  auto* menu = barMenu(window, "Documents");
  menu->popup(window.mapToGlobal(QPoint(10, 10)));
  ASSERT_TRUE(QTest::qWaitForWindowExposed(menu, kvltest::kPatience));
  session().session()->disconnectAfterError();
  session().session()->enqueueNotarisation();
  ASSERT_TRUE(
      eventually([&] { return QString::fromStdString(serviceLog()).count("GET /desktop") >= 2; }));
  // What is sent later is shown later.
  QSignalSpy shown(window.documentView(), &qthost::DocumentView::shown);
  window.documentView()->fetch("/status");
  ASSERT_TRUE(eventually([&] { return !shown.isEmpty(); }));
  EXPECT_EQ(barMenu(window, "Documents"), menu);
  EXPECT_TRUE(menu->isVisible());
  menu->close();
}

TEST_F(HostMenuTest, ASegmentThatIsNoLongerThereIsNotChosen) {
  const auto& window = openCompleteWindow();
  auto* segments = window.findChild<kvl::qt::SegmentedControlView*>();
  Q_EMIT segments->segmentChosen(99);
  Q_EMIT segments->segmentChosen(-1);
  EXPECT_TRUE(segments->isVisible());
}

TEST_F(HostMenuTest, WithoutASessionNoMenuOfTheServiceIsOpen) {
  const auto& window = openCompleteWindow();
  QToolButton* button = statusButton(window);
  EXPECT_TRUE(button->menu()->isEnabled());
  killService();
  ASSERT_TRUE(eventually([&] { return !session().isEstablished(); }));
  EXPECT_FALSE(button->isEnabled());
  EXPECT_FALSE(button->menu()->isEnabled());
  EXPECT_FALSE(barMenu(window, "Help")->menuAction()->isEnabled());
}

TEST_F(HostMenuTest, MenusThatCannotBeHadAreAskedForAgain) {
  startHost();
  const auto& window = openWindow({.menu = "/mine"});
  ASSERT_TRUE(
      eventually([&] { return window.statusBar()->currentMessage() == "Menus: 404 Not Found"; }));
  // What is told as the menus come.
  std::optional<QString> message;
  QObject::connect(&window, &qthost::MainWindow::menusShown, &window,
                   [&] { message = window.statusBar()->currentMessage(); });
  document("mine.json", menuWith("First & last"));
  EXPECT_TRUE(eventually([&] { return barMenu(window, "First & last") != nullptr; }));
  EXPECT_EQ(message, QString());
}

TEST_F(HostMenuTest, AnAnswerThatIsARefusalLeavesTheMenus) {
  document("code", menuWith("First"));
  startHost();
  const auto& window = openWindow({.menu = "/code?status=503"});
  ASSERT_TRUE(eventually([&] { return barMenu(window, "First") != nullptr; }));
  std::filesystem::remove(directory.path() / "documents" / "code");
  session().session()->disconnectAfterError();
  session().session()->enqueueNotarisation();
  ASSERT_TRUE(eventually(
      [&] { return window.statusBar()->currentMessage() == "Menus: 503 Service Unavailable"; }));
  EXPECT_NE(barMenu(window, "First"), nullptr);
  document("code", menuWith("Second"));
  EXPECT_TRUE(eventually([&] { return barMenu(window, "Second") != nullptr; }));
}

TEST_F(HostMenuTest, WhetherAnItemAsksIsUpToItsForm) {
  document("mine", menuWith("Menu", R"({"type":"item","id":"a","text":"Act…","shortcut":"a",
      "form":{"id":"a","action":"/echo?act=1","method":"post"}})"));
  startHost();
  auto& window = openWindow({.menu = "/mine"});
  ASSERT_TRUE(eventually([&] { return barMenu(window, "Menu") != nullptr; }));
  QTest::keyClick(&window, Qt::Key_A, Qt::ControlModifier);
  EXPECT_TRUE(eventually([&] { return window.statusBar()->currentMessage() == "Act…: 200 OK"; }));
  EXPECT_EQ(window.findChild<kvl::qt::FormDialog*>(), nullptr);
}

}  // namespace
