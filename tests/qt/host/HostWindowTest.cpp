#include "examples/qthost/DocumentView.h"
#include "examples/qthost/EventLog.h"
#include "tests/qt/host/HostFixture.h"

#include <local/qt/DocumentTree.h>
#include <local/qt/Notice.h>

#include <gmock/gmock.h>

#include <QAccessible>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>

namespace {

using kvltest::eventually;
using qthost::DocumentView;

class HostWindowTest : public kvltest::HostTest {
 protected:
  static kvl::qt::Notice* noticeOf(const qthost::MainWindow& window) {
    return window.documentView()->findChild<kvl::qt::Notice*>();
  }

  static bool showsDocumentWith(const qthost::MainWindow& window, const QString& text) {
    const auto* model = window.documentView()->findChild<kvl::qt::DocumentTree*>()->model();
    return !model
                ->match(model->index(0, 1), Qt::DisplayRole, text, 1,
                        Qt::MatchContains | Qt::MatchRecursive)
                .isEmpty();
  }

  // Another window than that one.
  static qthost::MainWindow* windowBeside(const qthost::MainWindow& window) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      auto* other = qobject_cast<qthost::MainWindow*>(widget);
      if (other != nullptr && other != &window) return other;
    }
    return nullptr;
  }

  // The numbers of the event log.
  static std::vector<int> numbersIn(const qthost::MainWindow& window) {
    std::vector<int> numbers;
    const auto* log = window.findChild<qthost::EventLog*>()->model();
    for (int i = 0; i < log->rowCount(); ++i) numbers.push_back(log->index(i, 0).data().toInt());
    return numbers;
  }
};

TEST_F(HostWindowTest, ADocumentIsShownAsSoonAsThereIsASession) {
  const auto& window = openCompleteWindow();
  EXPECT_TRUE(eventually([&] { return showsDocumentWith(window, "kvlocal-devservice"); }));
  EXPECT_FALSE(noticeOf(window)->isVisible());
}

TEST_F(HostWindowTest, AnErrorIsToldInPlaceAndTheDocumentStays) {
  auto& window = openCompleteWindow();
  ASSERT_TRUE(eventually([&] { return showsDocumentWith(window, "kvlocal-devservice"); }));
  auto* path = window.documentView()->findChild<QLineEdit*>();
  path->setText("/nothing/here");
  QTest::keyClick(path, Qt::Key_Return);
  ASSERT_TRUE(eventually([&] { return noticeOf(window)->isVisible(); }));
  EXPECT_EQ(noticeOf(window)->text(), "404 Not Found");
  EXPECT_TRUE(showsDocumentWith(window, "kvlocal-devservice"));
  path->setText("/code?status=503");
  QTest::keyClick(path, Qt::Key_Return);
  ASSERT_TRUE(eventually([&] { return noticeOf(window)->text() == "503 Service Unavailable"; }));
  EXPECT_TRUE(showsDocumentWith(window, "kvlocal-devservice"));
  path->setText("/desktop");
  QTest::keyClick(path, Qt::Key_Return);
  EXPECT_TRUE(eventually([&] { return showsDocumentWith(window, "Documents"); }));
  EXPECT_FALSE(noticeOf(window)->isVisible());
}

TEST_F(HostWindowTest, ItSurvivesTheServicesRestart) {
  startHost({}, "/feed?interval=50");
  auto& window = openWindow();
  ASSERT_TRUE(waitForMenus(window));
  ASSERT_TRUE(waitForLine(window, "tick"));
  EXPECT_EQ(shownState(window), "Session: Established");
  killService();
  ASSERT_TRUE(eventually([&] { return shownState(window) == "Session: Disconnected"; }));
  auto* menu = barMenu(window, "Documents");
  ASSERT_NE(menu, nullptr);
  EXPECT_FALSE(menu->menuAction()->isEnabled());
  const int before = numbersIn(window).back();
  restartService();
  ASSERT_TRUE(eventually([&] { return shownState(window) == "Session: Established"; }));
  EXPECT_TRUE(menu->menuAction()->isEnabled());
  ASSERT_TRUE(eventually([&] { return numbersIn(window).back() > before + 3; }));
  const auto numbers = numbersIn(window);
  for (std::size_t i = 0; i < numbers.size(); ++i)
    EXPECT_EQ(numbers[i], static_cast<int>(i) + 1) << "in place of " << i + 1;
}

TEST_F(HostWindowTest, AnErrorGoesWhenTheServiceIsBack) {
  auto& window = openCompleteWindow();
  killService();
  ASSERT_TRUE(eventually([&] { return !session().isEstablished(); }));
  window.documentView()->fetch("/desktop");
  ASSERT_TRUE(eventually([&] { return noticeOf(window)->isVisible(); }));
  auto* path = window.documentView()->findChild<QLineEdit*>();
  path->setText("/nothing/here");  // and not sent
  restartService();
  EXPECT_TRUE(eventually([&] { return showsDocumentWith(window, "Documents"); }));
  EXPECT_FALSE(noticeOf(window)->isVisible());
  EXPECT_EQ(path->text(), "/nothing/here");
}

TEST_F(HostWindowTest, AWindowGoesAwayWhileRequestsArePending) {
  auto& stays = openCompleteWindow();
  auto& window = openWindow({.document = "/slow?ms=300"});
  ASSERT_TRUE(waitForMenus(window));
  window.documentView()->fetch("/slow?ms=300");
  QTest::keyClick(&window, Qt::Key_I, Qt::ControlModifier);
  delete &window;
  ASSERT_TRUE(waitForServiceLog("GET /slow"));
  activate(stays);
  QTest::keyClick(&stays, Qt::Key_I, Qt::ControlModifier);
  EXPECT_TRUE(waitForLine(stays, "install=all"));
}

TEST_F(HostWindowTest, EverythingGoesAwayWhileRequestsArePending) {
  auto& window = openCompleteWindow();
  window.documentView()->fetch("/slow?ms=300");
  QTest::keyClick(&window, Qt::Key_I, Qt::ControlModifier);
  TearDown();
  EXPECT_TRUE(waitForServiceLog("GET /slow"));
}

TEST_F(HostWindowTest, TwoWindowsShowTheSameEvents) {
  auto& first = openCompleteWindow();
  QTest::keyClick(&first, Qt::Key_N, Qt::ControlModifier);
  const QPointer<qthost::MainWindow> second = windowBeside(first);
  ASSERT_NE(second, nullptr);
  activate(*second);
  ASSERT_TRUE(waitForMenus(*second));
  QTest::keyClick(second.data(), Qt::Key_I, Qt::ControlModifier);
  EXPECT_TRUE(waitForLine(first, "install=all"));
  EXPECT_TRUE(waitForLine(*second, "install=all"));
  EXPECT_EQ(logLines(first).filter("install=all").size(), 1);
  QTest::keyClick(second.data(), Qt::Key_W, Qt::ControlModifier);
  EXPECT_TRUE(eventually([&] { return second.isNull(); }));
  EXPECT_TRUE(first.isVisible());
}

TEST_F(HostWindowTest, AFloodOfEventsLeavesTheLatest) {
  startHost({}, "/events?last=50000&then=silence");
  auto& window = openWindow();
  ASSERT_TRUE(waitForLine(window, R"(tick {"number":50000})"));
  constexpr int kMost = kvl::qt::EventListModel::kUsualMost;
  EXPECT_EQ(numbersIn(window).size(), static_cast<std::size_t>(kMost));
  EXPECT_EQ(numbersIn(window).front(), 50000 - kMost + 1);
}

TEST_F(HostWindowTest, WhateverTakesTheFocusHasAName) {
  const auto& window = openCompleteWindow();
  int named = 0;
  for (QWidget* widget : window.findChildren<QWidget*>()) {
    if (!widget->isVisible() || (widget->focusPolicy() & Qt::TabFocus) == 0) continue;
    if (widget->focusProxy() != nullptr) continue;
    const auto* accessible = QAccessible::queryAccessibleInterface(widget);
    ASSERT_NE(accessible, nullptr);
    EXPECT_FALSE(accessible->text(QAccessible::Name).isEmpty())
        << widget->metaObject()->className();
    ++named;
  }
  EXPECT_GE(named, 5);
}

}  // namespace
