#include "tests/qt/Patience.h"
#include "tests/support/QtApplication.h"

#include <local/platform/DispatchQueue.h>
#include <local/qt/ProgressView.h>

#include <gmock/gmock.h>

#include <QAbstractEventDispatcher>
#include <QAccessible>
#include <QEventLoop>
#include <QHelpEvent>
#include <QProgressBar>
#include <QTest>
#include <QTimer>
#include <QToolTip>
#include <limits>
#include <thread>

namespace {

using kvl::Progress;
using kvl::ProgressState;
using kvl::qt::ProgressView;
using kvltest::kPatience;
using kvltest::QtApplication;
using testing::HasSubstr;

std::shared_ptr<Progress> recordOf(ProgressState state) {
  return std::make_shared<Progress>(std::move(state));
}

QProgressBar& barOf(const ProgressView& view) {
  return *view.findChild<QProgressBar*>();
}

// How much of the bar is filled, in parts of a hundred; -1 while it is busy.
int percentOf(const ProgressView& view) {
  const auto& bar = barOf(view);
  if (bar.minimum() == bar.maximum()) return -1;
  return static_cast<int>(100LL * (bar.value() - bar.minimum()) / (bar.maximum() - bar.minimum()));
}

// How many events of a type a widget gets from now on.
class EventCount final : public QObject {
 public:
  EventCount(QWidget& widget, QEvent::Type type) : type_(type) { widget.installEventFilter(this); }
  int count = 0;

  bool eventFilter(QObject*, QEvent* event) override {
    count += event->type() == type_ ? 1 : 0;
    return false;
  }

 private:
  const QEvent::Type type_;
};

// How often the event loop goes round in so many milliseconds. The end of them is one time.
int roundsIn(int milliseconds) {
  int rounds = 0;
  QEventLoop loop;
  QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &loop,
                   [&rounds] { ++rounds; });
  QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
  loop.exec();
  return rounds;
}

// The tool tip that the user sees who points at the view.
std::string shownToolTip(ProgressView& view) {
  QToolTip::hideText();
  const auto position = view.rect().center();
  QHelpEvent event(QEvent::ToolTip, position, view.mapToGlobal(position));
  QApplication::sendEvent(&view, &event);
  return QToolTip::text().toStdString();
}

std::string descriptionOf(QWidget& widget) {
  return QAccessible::queryAccessibleInterface(&widget)
      ->text(QAccessible::Description)
      .toStdString();
}

TEST(ProgressViewTest, ShowsTheShareThatIsCompleted) {
  const QtApplication application;
  ProgressView view(recordOf({200, 50, "Uploading", ""}));
  view.show();
  EXPECT_TRUE(barOf(view).isVisible());
  EXPECT_EQ(percentOf(view), 25);
}

TEST(ProgressViewTest, FollowsItsRecord) {
  const QtApplication application;
  const auto record = recordOf({4, 1, "Uploading", "1 of 4"});
  ProgressView view(record);
  view.show();
  record->update({4, 2, "Uploading more", "2 of 4"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return percentOf(view) == 50; }, kPatience));
  EXPECT_EQ(view.accessibleName(), QStringLiteral("Uploading more"));
  EXPECT_EQ(view.accessibleDescription(), QStringLiteral("2 of 4"));
}

TEST(ProgressViewTest, IsBusyWhileTheTotalIsUnknown) {
  const QtApplication application;
  for (const std::int64_t total : {0, -1}) {
    ProgressView view(recordOf({total, 0, "Connecting", ""}));
    view.show();
    EXPECT_TRUE(barOf(view).isVisible());
    EXPECT_EQ(percentOf(view), -1);
  }
}

TEST(ProgressViewTest, IsBusyWhileItsOnlyUnitIsNotDone) {
  const QtApplication application;
  ProgressView view(recordOf({1, 0, "Connecting", ""}));
  view.show();
  EXPECT_TRUE(barOf(view).isVisible());
  EXPECT_EQ(percentOf(view), -1);
}

TEST(ProgressViewTest, HidesTheBarWhenEverythingIsDone) {
  const QtApplication application;
  for (const auto& state :
       {ProgressState{1, 1, "Established", ""}, ProgressState{10, 12, "Established", ""}}) {
    ProgressView view(recordOf(state));
    view.show();
    EXPECT_FALSE(barOf(view).isVisible());
    EXPECT_EQ(view.accessibleName(), QStringLiteral("Established"));
  }
}

TEST(ProgressViewTest, ShowsNothingWhereThereIsNothingToShow) {
  const QtApplication application;
  ProgressView nothing(nullptr);
  ProgressView empty(recordOf({}));
  for (auto* view : {&nothing, &empty}) {
    view->show();
    EXPECT_FALSE(barOf(*view).isVisible());
    EXPECT_EQ(view->accessibleName(), QString());
    EXPECT_EQ(shownToolTip(*view), "");
  }
}

TEST(ProgressViewTest, SharesStayWithinTheirBounds) {
  const QtApplication application;
  ProgressView view(recordOf({10, -3, "Uploading", ""}));
  EXPECT_EQ(percentOf(view), 0);
}

TEST(ProgressViewTest, CountsFurtherThanBarsDo) {
  const QtApplication application;
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  ProgressView view(recordOf({kMost, kMost / 4 * 3, "Uploading", ""}));
  EXPECT_NEAR(percentOf(view), 75, 1);
}

TEST(ProgressViewTest, TheToolTipHasAllOfTheTextsAndNoMarkup) {
  const QtApplication application;
  ProgressView view(recordOf({1, 0, "<b>Reconnecting</b>", "Lost\nRetrying"}));
  view.show();
  EXPECT_THAT(shownToolTip(view), HasSubstr("&lt;b&gt;Reconnecting&lt;/b&gt;\nLost\nRetrying"));
}

TEST(ProgressViewTest, WhatIsAbsentIsInTheRecordAndNotOnTheScreen) {
  const QtApplication application;
  const struct {
    const char* record;
    const char* shown;
  } cases[] = {
      {"Lost – (null)\nRetrying every 3 seconds", "Lost\nRetrying every 3 seconds"},
      {"(null) – /run/notary\nRetrying", "/run/notary\nRetrying"},
      {"(null) – (null)\nRetrying", "Retrying"},
      {"Lost – /run/notary\nRetrying", "Lost – /run/notary\nRetrying"},
      {"Notarised (null)", "Notarised (null)"},
      {"(null)", ""},
  };
  for (const auto& [record, shown] : cases) {
    const auto progress = recordOf({1, 0, "Reconnecting…", record});
    ProgressView view(progress);
    view.show();
    const auto line = QString::fromUtf8(shown).replace(QLatin1Char('\n'), QLatin1Char(' '));
    EXPECT_EQ(view.accessibleDescription(), line);
    EXPECT_EQ(barOf(view).accessibleDescription(), line);
    const auto toolTip = std::string("Reconnecting…\n") + shown;
    EXPECT_THAT(shownToolTip(view),
                HasSubstr(">" + toolTip.substr(0, toolTip.find_last_not_of('\n') + 1) + "<"));
    EXPECT_EQ(progress->state().localizedAdditionalDescription, record);
  }
}

TEST(ProgressViewTest, TheToolTipsLinesKeepTheirDirections) {
  const QtApplication application;
  ProgressView view(recordOf({1, 0, "מתחבר (2)", "Lost (1)"}));
  view.show();
  EXPECT_THAT(shownToolTip(view), HasSubstr("\u2068מתחבר (2)\u2069\nLost (1)"));
}

TEST(ProgressViewTest, IsOneLineHighWhateverTheTexts) {
  const QtApplication application;
  const ProgressView plain(recordOf({1, 0, "Connecting", "more"}));
  ProgressView hostile(recordOf({1, 0, std::string(1 << 20, 'x'), std::string(1 << 20, '\n')}));
  EXPECT_EQ(hostile.sizeHint().height(), plain.sizeHint().height());
  EXPECT_LT(hostile.minimumSizeHint().width(), 600);
  EXPECT_LT(hostile.sizeHint().width(), 1200);
  EXPECT_LT(shownToolTip(hostile).size(), 5000U);
}

TEST(ProgressViewTest, ScreenReadersHearTextsAndValue) {
  const QtApplication application;
  ProgressView view(recordOf({4, 1, "Uploading", "1 of 4"}));
  view.show();
  auto* bar = QAccessible::queryAccessibleInterface(&barOf(view));
  EXPECT_EQ(bar->role(), QAccessible::ProgressBar);
  EXPECT_EQ(bar->text(QAccessible::Name), QStringLiteral("Uploading"));
  EXPECT_EQ(bar->text(QAccessible::Description), QStringLiteral("1 of 4"));
  auto* values = bar->valueInterface();
  EXPECT_EQ(values->currentValue().toInt() * 4, values->maximumValue().toInt());
}

TEST(ProgressViewTest, ScreenReadersHearNoMarkup) {
  const QtApplication application;
  ProgressView view(recordOf({4, 1, "Uploading", ""}));
  view.show();
  EXPECT_EQ(descriptionOf(view), "");
  EXPECT_EQ(descriptionOf(barOf(view)), "");
  view.setProgress(recordOf({4, 1, "Uploading", "a & b"}));
  EXPECT_EQ(descriptionOf(view), "a & b");
}

TEST(ProgressViewTest, AHundredThousandUpdatesCostFewRepaints) {
  const QtApplication application;
  constexpr std::int64_t kUpdates = 100'000;
  const auto record = recordOf({kUpdates, 0, "Uploading", ""});
  ProgressView view(record);
  view.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view, kPatience));
  const EventCount repaints(barOf(view), QEvent::Paint);
  for (std::int64_t i = 1; i < kUpdates; ++i) record->update({kUpdates, i, "Uploading", ""});
  ASSERT_TRUE(QTest::qWaitFor([&] { return percentOf(view) == 99; }, kPatience));
  // The view looks at the record when the loop comes round: once for all of them. A window that has
  // just been shown may be painted again.
  EXPECT_LE(repaints.count, 5);
}

TEST(ProgressViewTest, NothingWakesUpOnceEverythingIsDone) {
  const QtApplication application;
  const auto record = recordOf({1, 0, "Connecting", ""});
  ProgressView view(record);
  view.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view, kPatience));
  const EventCount steps(barOf(view), QEvent::StyleAnimationUpdate);
  ASSERT_TRUE(QTest::qWaitFor([&] { return steps.count > 2; }, kPatience));
  record->update({1, 1, "Established", ""});
  ASSERT_TRUE(QTest::qWaitFor([&] { return !barOf(view).isVisible(); }, kPatience));
  // The animation notices at its next step that nobody sees it.
  EXPECT_TRUE(QTest::qWaitFor([] { return roundsIn(500) <= 3; }, kPatience));
}

TEST(ProgressViewTest, ShowsAnotherRecordAndForgetsTheFormer) {
  const QtApplication application;
  auto record = recordOf({4, 1, "Uploading", ""});
  ProgressView view(record);
  const std::weak_ptr<Progress> former = std::exchange(record, nullptr);
  view.setProgress(recordOf({2, 1, "Other", ""}));
  EXPECT_TRUE(former.expired());
  EXPECT_EQ(view.accessibleName(), QStringLiteral("Other"));
  EXPECT_EQ(percentOf(view), 50);
}

TEST(ProgressViewTest, TheRecordMayChangeOnOtherThreadsWhileTheViewComesAndGoes) {
  const QtApplication application;
  const auto record = recordOf({100, 0, "Uploading", ""});
  std::atomic<bool> stop = false;
  std::thread updater([&] {
    for (std::int64_t i = 0; !stop; ++i) record->update({100, i % 100, "Uploading", ""});
  });
  for (int i = 0; i < 50; ++i) {
    ProgressView view(record);
    view.show();
    QApplication::processEvents();
  }
  stop = true;
  updater.join();
}

TEST(ProgressViewTest, TheApplicationMayEndFirst) {
  QtApplication application;
  const auto record = recordOf({4, 1, "Uploading", ""});
  auto view = std::make_unique<ProgressView>(record);
  view->show();
  application.end();
  record->update({4, 2, "Uploading", ""});
  view.reset();
  record->update({4, 3, "Uploading", ""});
}

}  // namespace
