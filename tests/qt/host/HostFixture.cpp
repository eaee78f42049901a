#include "tests/qt/host/HostFixture.h"

#include "examples/qthost/EventLog.h"
#include "examples/qthost/StateDot.h"
#include "examples/qthost/Texts.h"

#include <local/platform/HostApplication.h>
#include <local/qt/Conversions.h>

#include <unistd.h>

#include <QMenuBar>
#include <QToolButton>
#include <algorithm>

namespace kvltest {
namespace {

bool hasItsIcon(const std::shared_ptr<kvl::MenuItem>& item) {
  return item == nullptr || !item->expectsImage() || item->image() != nullptr;
}

bool hasItsIcons(const kvl::qt::MenuView* view) {
  return std::ranges::all_of(view->actions(),
                             [&](const QAction* it) { return hasItsIcon(view->itemOf(it)); });
}

}  // namespace

HostTest::HostTest() = default;
HostTest::~HostTest() = default;

void HostTest::SetUp() {
  ServiceTest::SetUp();
  busVariable_.emplace(busAddress());
  // The kernel's keyring is shared with whoever else runs these tests at the same time.
  kvl::setHostIdentifier("org.example.HostTest-" + std::to_string(getpid()));
}

void HostTest::TearDown() {
  for (const auto& window : windows_) delete window.data();
  const auto session = session_ ? session_->session() : nullptr;
  session_.reset();
  if (session) {
    kvl::Semaphore ended;
    session->end([&](const auto& /*error*/) { ended.signal(); });
    EXPECT_TRUE(ended.waitFor(std::chrono::milliseconds(kPatience)));
  }
  integration_.reset();
  application_.reset();
  (void)KVLNotary::deleteKeys();
}

void HostTest::startHost(const QtLook& look, const QString& events) {
  application_.emplace(look);
  integration_.emplace();
  session_ = std::make_unique<kvl::qt::SessionObject>();
  if (!events.isEmpty()) session_->setEventSource(events);
}

qthost::MainWindow& HostTest::openWindow(const qthost::Options& options) {
  auto* window = new qthost::MainWindow(*session_, options);
  windows_.emplace_back(window);
  window->move(0, 0);
  window->show();
  activate(*window);
  return *window;
}

void HostTest::activate(QWidget& window) {
  window.activateWindow();
  EXPECT_TRUE(eventually([&] { return window.isActiveWindow(); }));
}

qthost::MainWindow& HostTest::openCompleteWindow(const QtLook& look) {
  startHost(look);
  qthost::MainWindow& window = openWindow();
  EXPECT_TRUE(waitForMenus(window));
  EXPECT_TRUE(waitForLine(window, "started"));
  return window;
}

kvl::qt::MenuView* HostTest::barMenu(const qthost::MainWindow& window, const QString& title) {
  for (const QAction* action : window.menuBar()->actions()) {
    if (qthost::readText(action->text()) == title)
      return qobject_cast<kvl::qt::MenuView*>(action->menu());
  }
  return nullptr;
}

QToolButton* HostTest::statusButton(const qthost::MainWindow& window) {
  for (auto* button : window.findChildren<QToolButton*>())
    if (button->accessibleName() == "Status of the service") return button;
  return nullptr;
}

bool HostTest::waitForMenus(const qthost::MainWindow& window) {
  return eventually([&] {
    return barMenu(window, "Documents") != nullptr &&
           std::ranges::all_of(window.findChildren<kvl::qt::MenuView*>(), hasItsIcons);
  });
}

QStringList HostTest::logLines(const qthost::MainWindow& window) {
  QStringList lines;
  const auto* log = window.findChild<qthost::EventLog*>()->model();
  for (int i = 0; i < log->rowCount(); ++i)
    lines.append(log->index(i, 1).data().toString() + ' ' + log->index(i, 2).data().toString());
  return lines;
}

bool HostTest::waitForLine(const qthost::MainWindow& window, const QString& text) {
  return eventually([&] { return !logLines(window).filter(text).isEmpty(); });
}

QString HostTest::shownState(const qthost::MainWindow& window) {
  return window.findChild<qthost::StateDot*>()->accessibleName();
}

}  // namespace kvltest
