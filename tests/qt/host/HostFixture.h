// The example host's windows beside the development notary and service.
#pragma once

#include "examples/qthost/MainWindow.h"
#include "tests/support/QtApplication.h"
#include "tests/tools/ServiceFixture.h"

#include <local/qt/Integration.h>
#include <local/qt/MenuView.h>
#include <local/qt/SessionObject.h>

#include <QPointer>
#include <QTest>
#include <optional>

class QToolButton;

namespace kvltest {

inline constexpr int kPatience = 60'000;  // ms

// Runs the event loop until the condition holds; false when it does not for a very long time.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  return QTest::qWaitFor(condition, kPatience);
}

class HostTest : public ServiceTest {
 protected:
  HostTest();
  ~HostTest() override;

  // Starts the services.
  void SetUp() override;
  // Destroys what is left of windows and session, in this order; the session ends, its keys go.
  void TearDown() override;

  // Starts the application and its session.
  void startHost(const QtLook& look = {}, const QString& events = QStringLiteral("/feed"));
  // A window that is shown; it goes away when it is closed, or with the test.
  qthost::MainWindow& openWindow(const qthost::Options& options = {});
  // The keyboard's window from now on.
  static void activate(QWidget& window);
  // Starts the host and opens a window that has everything from the service.
  qthost::MainWindow& openCompleteWindow(const QtLook& look = {});

  [[nodiscard]] kvl::qt::SessionObject& session() const { return *session_; }
  [[nodiscard]] QtApplication& application() { return *application_; }

  // The menu of the menu bar with that title; null for none.
  static kvl::qt::MenuView* barMenu(const qthost::MainWindow& window, const QString& title);
  // The button in the tool bar with the status menu; null for none.
  static QToolButton* statusButton(const qthost::MainWindow& window);
  // Waits for the menus, with their icons.
  [[nodiscard]] static bool waitForMenus(const qthost::MainWindow& window);
  // The texts of the event log, a line each: name, blank, data.
  static QStringList logLines(const qthost::MainWindow& window);
  // Waits for a line of the event log with that text.
  [[nodiscard]] static bool waitForLine(const qthost::MainWindow& window, const QString& text);
  // The text of the state in the status bar.
  static QString shownState(const qthost::MainWindow& window);

 private:
  std::optional<SessionBusVariable> busVariable_;
  std::optional<QtApplication> application_;
  std::optional<kvl::qt::Integration> integration_;
  std::unique_ptr<kvl::qt::SessionObject> session_;
  std::vector<QPointer<qthost::MainWindow>> windows_;
};

}  // namespace kvltest
