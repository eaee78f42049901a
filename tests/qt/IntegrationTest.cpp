#include "tests/qt/Patience.h"
#include "tests/support/LogCapture.h"
#include "tests/support/QtApplication.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/FontMeasurement.h>
#include <local/platform/Workspace.h>
#include <local/qt/Integration.h>

#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QEventLoop>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace {

using namespace std::chrono_literals;
using kvl::DispatchQueue;
using kvl::qt::Integration;
using kvltest::kPatience;
using kvltest::QtApplication;

// An application whose event loop knows nothing of GLib.
class ApplicationWithoutGLib {
 public:
  ApplicationWithoutGLib() {
    qputenv("QT_NO_GLIB", "1");
    application_ = std::make_unique<QtApplication>();
    qunsetenv("QT_NO_GLIB");
    EXPECT_FALSE(QAbstractEventDispatcher::instance()->inherits("QEventDispatcherGlib"));
  }

 private:
  std::unique_ptr<QtApplication> application_;
};

// Runs Qt's loop, which sleeps while there is nothing to do, until `quit` is called.
class Loop {
 public:
  void run() {
    QTimer::singleShot(kPatience, &loop_, [this] { loop_.exit(1); });
    EXPECT_EQ(loop_.exec(), 0);
  }
  void quit() { loop_.quit(); }

 private:
  QEventLoop loop_;
};

TEST(IntegrationTest, TheHostsOpenerAndPresenterComeBack) {
  const QtApplication application;
  int opened = 0;
  int presented = 0;
  kvl::setURLOpener([&](auto) { return ++opened > 0; });
  kvl::setErrorPresenter([&](const auto&) { ++presented; });
  {
    const Integration integration;
  }
  EXPECT_TRUE(kvl::openURL("https://example.org/"));
  kvl::presentError({"Test", 1});
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(presented, 1);
  kvl::setURLOpener(nullptr);
  kvl::setErrorPresenter(nullptr);
}

TEST(IntegrationTest, OneWithinAnotherGivesBackToTheOther) {
  const QtApplication application;
  const Integration outer;
  const double height = kvl::menuBarTextHeight("A");
  ASSERT_NE(height, kvl::kDefaultMenuBarTextHeight);
  {
    const Integration inner;
    EXPECT_DOUBLE_EQ(kvl::menuBarTextHeight("A"), height);
  }
  EXPECT_DOUBLE_EQ(kvl::menuBarTextHeight("A"), height);
  EXPECT_TRUE(kvl::setErrorPresenter(nullptr));
  EXPECT_TRUE(kvl::setURLOpener(nullptr));
}

TEST(IntegrationTest, TheyMayBeDestroyedInTheOrderInWhichTheyWereMade) {
  const QtApplication application;
  int opened = 0;
  kvl::setURLOpener([&](auto) { return ++opened > 0; });
  auto first = std::make_unique<Integration>();
  auto second = std::make_unique<Integration>();
  auto third = std::make_unique<Integration>();
  const double height = kvl::menuBarTextHeight("A");
  second.reset();
  first.reset();
  EXPECT_DOUBLE_EQ(kvl::menuBarTextHeight("A"), height);
  EXPECT_FALSE(kvl::openURL("file:///etc/passwd"));
  EXPECT_EQ(opened, 0);
  third.reset();
  EXPECT_DOUBLE_EQ(kvl::menuBarTextHeight("A"), kvl::kDefaultMenuBarTextHeight);
  EXPECT_TRUE(kvl::openURL("https://example.org/"));
  EXPECT_EQ(opened, 1);
  EXPECT_FALSE(kvl::setErrorPresenter(nullptr));
  kvl::setURLOpener(nullptr);
}

TEST(IntegrationTest, BlocksOfTheMainQueueRunInQtsLoop) {
  const QtApplication application;
  const Integration integration;
  Loop loop;
  DispatchQueue::main()->async([&] { loop.quit(); });
  loop.run();
}

TEST(IntegrationTest, BlocksOfTheMainQueueRunWhereQtDoesWithoutGLib) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  Loop loop;
  DispatchQueue::main()->async([&] { loop.quit(); });
  loop.run();
}

TEST(IntegrationTest, OtherThreadsWakeALoopWithoutGLibThatSleeps) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  Loop loop;
  std::thread worker;
  // When this runs, the loop has begun, and next it sleeps.
  QTimer::singleShot(0, [&] {
    worker = std::thread([&] { DispatchQueue::main()->async([&] { loop.quit(); }); });
  });
  loop.run();
  worker.join();
}

TEST(IntegrationTest, DelayedBlocksRunWhereQtDoesWithoutGLib) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  Loop loop;
  DispatchQueue::main()->asyncAfter(20ms, [&] { loop.quit(); });
  loop.run();
}

TEST(IntegrationTest, ABlockWithoutGLibMayRunALoopOfItsOwn) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  Loop outer;
  Loop inner;
  DispatchQueue::main()->async([&] {
    DispatchQueue::main()->async([&] { inner.quit(); });
    inner.run();
    outer.quit();
  });
  outer.run();
}

TEST(IntegrationTest, TenThousandBlocksRunInOrderWithoutGLib) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  constexpr int kBlocks = 10'000;
  Loop loop;
  int next = 0;
  bool inOrder = true;
  std::thread worker([&] {
    for (int i = 0; i < kBlocks; ++i)
      DispatchQueue::main()->async([&, i] {
        inOrder = inOrder && next == i;
        if (++next == kBlocks) loop.quit();
      });
  });
  loop.run();
  worker.join();
  EXPECT_TRUE(inOrder);
}

TEST(IntegrationTest, LoopsThatOnlyLookForEventsServeTheMainQueueWithoutGLib) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  bool ran = false;
  DispatchQueue::main()->async([&] { ran = true; });
  EXPECT_TRUE(QTest::qWaitFor([&] { return ran; }, kPatience));
}

TEST(IntegrationTest, NothingWakesALoopWithoutGLibThatHasNothingToDo) {
  const ApplicationWithoutGLib application;
  const Integration integration;
  QEventLoop loop;
  int wakeUps = 0;
  QTimer::singleShot(500, &loop, &QEventLoop::quit);
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &loop,
                   [&] { ++wakeUps; });
  loop.exec();
  // Each of them has a reason; ten a second would be a rhythm.
  EXPECT_LE(wakeUps, 20);
}

TEST(IntegrationTest, TheMainQueueIsServedOnceWithTwoIntegrations) {
  const ApplicationWithoutGLib application;
  const Integration outer;
  auto inner = std::make_optional<Integration>();
  Loop loop;
  int ran = 0;
  DispatchQueue::main()->async([&] { ++ran; });
  DispatchQueue::main()->async([&] { loop.quit(); });
  loop.run();
  EXPECT_EQ(ran, 1);
  inner.reset();
  DispatchQueue::main()->async([&] { loop.quit(); });
  loop.run();
}

}  // namespace
