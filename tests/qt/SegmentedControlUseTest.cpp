// Mouse, keys, screen readers and the ends of things.
#include "tests/qt/Patience.h"
#include "tests/qt/SegmentRow.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

#include <QAccessible>
#include <QLineEdit>
#include <QTimer>
#include <QVBoxLayout>
#include <atomic>
#include <thread>

namespace {

using kvl::Segment;
using kvl::qt::SegmentedControlView;
using kvltest::kPatience;
using kvltest::QtApplication;
using kvltest::SegmentRow;
using testing::ElementsAre;
using testing::IsEmpty;

std::shared_ptr<kvl::Menu> menuWith(const std::string& title) {
  auto menu = std::make_shared<kvl::Menu>();
  menu->addItem(kvl::MenuItem::itemWithTitle(title));
  return menu;
}

// A row that keeps what was chosen.
class ChoosingRow : public SegmentRow {
 public:
  explicit ChoosingRow(std::vector<Segment> segments) : SegmentRow(std::move(segments)) {
    QObject::connect(view.get(), &SegmentedControlView::segmentChosen, view.get(),
                     [this](int index) { chosen.push_back(index); });
  }
  std::vector<int> chosen;
};

// Runs `action` as soon as a menu is open, and closes it then.
template <class Action>
void whenAMenuOpens(const Action& action) {
  QTimer::singleShot(0, [action] {
    ASSERT_TRUE(
        QTest::qWaitFor([] { return QApplication::activePopupWidget() != nullptr; }, kPatience));
    action();
    if (auto* popup = QApplication::activePopupWidget()) popup->close();
  });
}

TEST(SegmentedControlUseTest, AClickChoosesASegment) {
  const QtApplication application;
  const ChoosingRow row({{.label = "One"}, {.label = "Two"}});
  row.click(1);
  row.click(0);
  EXPECT_THAT(row.chosen, ElementsAre(1, 0));
}

TEST(SegmentedControlUseTest, ADisabledSegmentIsNotChosen) {
  const QtApplication application;
  const ChoosingRow row({{.enabled = false, .label = "One"}});
  row.click(0);
  EXPECT_THAT(row.chosen, IsEmpty());
}

TEST(SegmentedControlUseTest, ASegmentWithAMenuOpensItAndIsNotChosen) {
  const QtApplication application;
  const ChoosingRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
  QString title;
  whenAMenuOpens([&] {
    title = qobject_cast<QMenu*>(QApplication::activePopupWidget())->actions().at(0)->text();
  });
  row.click(0);
  EXPECT_EQ(title, QStringLiteral("Newest first"));
  EXPECT_THAT(row.chosen, IsEmpty());
}

TEST(SegmentedControlUseTest, TheRowIsOneStopForTab) {
  const QtApplication application;
  QWidget window;
  auto* column = new QVBoxLayout(&window);
  auto* before = new QLineEdit(&window);
  const auto control = std::make_shared<kvl::SegmentedControl>();
  auto* view = new SegmentedControlView(control, &window);
  auto* after = new QLineEdit(&window);
  for (QWidget* widget :
       {static_cast<QWidget*>(before), static_cast<QWidget*>(view), static_cast<QWidget*>(after)})
    column->addWidget(widget);
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window, kPatience));
  // Segments that come later have their place in the order, too.
  control->setSegments({{.enabled = false, .label = "One"}, {.label = "Two"}, {.label = "Three"}});
  QApplication::processEvents();
  before->setFocus();
  QTest::keyClick(before, Qt::Key_Tab);
  EXPECT_EQ(QApplication::focusWidget(), kvltest::buttonsOf(*view)[1]);
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  EXPECT_EQ(QApplication::focusWidget(), after);
  QTest::keyClick(after, Qt::Key_Backtab);
  EXPECT_EQ(QApplication::focusWidget(), kvltest::buttonsOf(*view)[1]);
}

TEST(SegmentedControlUseTest, AnEmptyRowIsNoStopForTab) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}});
  row.control->setSegmentCount(0);
  row.settle();
  EXPECT_EQ(row.view->focusPolicy(), Qt::NoFocus);
  row.control->setSegments({{.label = "One"}});
  row.settle();
  row.view->setFocus();
  EXPECT_EQ(row.focused(), 0);
}

TEST(SegmentedControlUseTest, ARowThatChangesWhileItIsDisabledIsAStopForTabOnceItIsEnabled) {
  const QtApplication application;
  for (const bool byParent : {false, true}) {
    QWidget window;
    auto* column = new QVBoxLayout(&window);
    auto* before = new QLineEdit(&window);
    const auto control = std::make_shared<kvl::SegmentedControl>();
    auto* panel = new QWidget(&window);
    auto* view = new SegmentedControlView(control, panel);
    (new QVBoxLayout(panel))->addWidget(view);
    column->addWidget(before);
    column->addWidget(panel);
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window, kPatience));
    QWidget& disabled = byParent ? *panel : *view;
    control->setSegments({{.label = "One"}});
    QApplication::processEvents();
    disabled.setEnabled(false);
    control->setSegments({{.enabled = false, .label = "One"}, {.label = "Two"}});
    QApplication::processEvents();
    disabled.setEnabled(true);
    before->setFocus();
    QTest::keyClick(before, Qt::Key_Tab);
    EXPECT_EQ(QApplication::focusWidget(), kvltest::buttonsOf(*view)[1]);
  }
}

TEST(SegmentedControlUseTest, ARowWhoseSegmentsAreEnabledLaterIsAStopForTabThen) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}, {.label = "Two"}});
  row.control->setSegments({{.enabled = false, .label = "One"}, {.enabled = false}});
  row.settle();
  EXPECT_EQ(row.view->focusPolicy(), Qt::NoFocus);
  row.control->setSegments({{.enabled = false, .label = "One"}, {.label = "Two"}});
  row.settle();
  EXPECT_EQ(row.view->focusPolicy(), Qt::StrongFocus);
  EXPECT_EQ(row.button(1).focusPolicy(), Qt::StrongFocus);
  EXPECT_EQ(row.button(0).focusPolicy(), Qt::ClickFocus);
}

TEST(SegmentedControlUseTest, ArrowsGoFromOneEnabledSegmentToTheNext) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.enabled = false, .label = "Two"}, {.label = "Three"}});
  row.view->setFocus();
  EXPECT_EQ(row.focused(), 0);
  row.press(Qt::Key_Right);
  EXPECT_EQ(row.focused(), 2);
  row.press(Qt::Key_Right);
  EXPECT_EQ(row.focused(), 2);
  row.press(Qt::Key_Left);
  EXPECT_EQ(row.focused(), 0);
}

TEST(SegmentedControlUseTest, ArrowsFollowTheDirectionOfTheLayout) {
  const QtApplication application({.locale = "he_IL.UTF-8", .rightToLeft = true});
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  row.view->setFocus();
  row.press(Qt::Key_Left);
  EXPECT_EQ(row.focused(), 1);
  row.press(Qt::Key_Right);
  EXPECT_EQ(row.focused(), 0);
}

TEST(SegmentedControlUseTest, HomeAndEndGoToTheFirstAndTheLast) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}, {.label = "Three"}});
  row.view->setFocus();
  row.press(Qt::Key_End);
  EXPECT_EQ(row.focused(), 2);
  row.press(Qt::Key_Home);
  EXPECT_EQ(row.focused(), 0);
}

TEST(SegmentedControlUseTest, SpaceAndEnterChoose) {
  const QtApplication application;
  const ChoosingRow row({{.label = "One"}, {.label = "Two"}});
  row.view->setFocus();
  row.press(Qt::Key_Space);
  row.press(Qt::Key_Right);
  row.press(Qt::Key_Return);
  row.press(Qt::Key_Enter, Qt::KeypadModifier);
  EXPECT_THAT(row.chosen, ElementsAre(0, 1, 1));
}

TEST(SegmentedControlUseTest, EveryKeyThatChoosesOpensAMenuToo) {
  const QtApplication application;
  const SegmentRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
  row.view->setFocus();
  int opened = 0;
  for (const auto key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Down}) {
    whenAMenuOpens([&] { ++opened; });
    row.press(key);
  }
  whenAMenuOpens([&] { ++opened; });
  row.press(Qt::Key_Down, Qt::AltModifier);
  EXPECT_EQ(opened, 4);
}

TEST(SegmentedControlUseTest, ASegmentWhoseMenuGoesWhileAKeyHasItOpenIsNotChosen) {
  const QtApplication application;
  for (const auto key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Down}) {
    const ChoosingRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
    row.view->setFocus();
    whenAMenuOpens([&] {
      row.control->setSegments({{.label = "Sort"}});
      row.settle();
    });
    row.press(key);
    EXPECT_EQ(row.button(0).menu(), nullptr);
    EXPECT_THAT(row.chosen, IsEmpty());
  }
}

TEST(SegmentedControlUseTest, KeysOfTheHostAreLeftToIt) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  row.view->setFocus();
  row.press(Qt::Key_Right, Qt::ControlModifier);
  EXPECT_EQ(row.focused(), 0);
  QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, {});
  QApplication::sendEvent(row.view.get(), &escape);
  EXPECT_FALSE(escape.isAccepted());
}

TEST(SegmentedControlUseTest, AClickMovesTheFocusToItsSegment) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  row.view->setFocus();
  row.click(1);
  EXPECT_EQ(row.focused(), 1);
  EXPECT_EQ(row.view->focusProxy(), &row.button(1));
}

TEST(SegmentedControlUseTest, TheFocusStaysWhenSegmentsChange) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}});
  row.view->setFocus();
  row.press(Qt::Key_Right);
  row.control->setSegments({{.label = "A"}, {.label = "B"}, {.label = "C"}});
  row.settle();
  EXPECT_EQ(row.focused(), 1);
}

TEST(SegmentedControlUseTest, TheFocusGoesToANeighbourWhenItsSegmentGoesOrIsDisabled) {
  const QtApplication application;
  const SegmentRow row({{.label = "One"}, {.label = "Two"}, {.label = "Three"}});
  row.view->setFocus();
  row.press(Qt::Key_End);
  row.control->setSegmentCount(2);
  row.settle();
  EXPECT_EQ(row.focused(), 1);
  row.control->setSegment(1, {.enabled = false, .label = "Two"});
  row.settle();
  EXPECT_EQ(row.focused(), 0);
}

TEST(SegmentedControlUseTest, ScreenReadersFindAGroupOfButtons) {
  const QtApplication application;
  const SegmentRow row({{.label = "A & B"},
                        {.enabled = false, .label = "Off"},
                        {.label = "Sort", .menu = menuWith("Newest first")}});
  auto* group = QAccessible::queryAccessibleInterface(row.view.get());
  ASSERT_NE(group, nullptr);
  EXPECT_EQ(group->role(), QAccessible::Grouping);
  ASSERT_EQ(group->childCount(), 3);
  EXPECT_EQ(group->child(0)->text(QAccessible::Name), QStringLiteral("A & B"));
  EXPECT_TRUE(group->child(1)->state().disabled);
  EXPECT_FALSE(group->child(0)->state().disabled);
  EXPECT_TRUE(group->child(2)->state().hasPopup);
  EXPECT_FALSE(group->child(0)->state().hasPopup);
}

QAccessibleActionInterface* actionsOf(const SegmentRow& row, std::size_t index) {
  return QAccessible::queryAccessibleInterface(&row.button(index))->actionInterface();
}

TEST(SegmentedControlUseTest, ScreenReadersPressASegmentWithoutAMenu) {
  const QtApplication application;
  const ChoosingRow row({{.label = "One"}, {.label = "Two"}});
  const auto press = QAccessibleActionInterface::pressAction();
  ASSERT_THAT(actionsOf(row, 1)->actionNames(), testing::Contains(press));
  actionsOf(row, 1)->doAction(press);
  EXPECT_TRUE(QTest::qWaitFor([&] { return !row.chosen.empty(); }, kPatience));
  EXPECT_THAT(row.chosen, ElementsAre(1));
}

TEST(SegmentedControlUseTest, WhatScreenReadersDoFollowsTheMenuOfASegment) {
  const QtApplication application;
  const SegmentRow row({{.label = "Sort"}});
  const auto show = QAccessibleActionInterface::showMenuAction();
  const auto press = QAccessibleActionInterface::pressAction();
  row.control->setSegment(0, {.label = "Sort", .menu = menuWith("Newest first")});
  row.settle();
  EXPECT_THAT(actionsOf(row, 0)->actionNames(), testing::Contains(show));
  EXPECT_THAT(actionsOf(row, 0)->actionNames(), testing::Not(testing::Contains(press)));
  row.control->setSegment(0, {.label = "Sort"});
  row.settle();
  EXPECT_THAT(actionsOf(row, 0)->actionNames(), testing::Contains(press));
  EXPECT_THAT(actionsOf(row, 0)->actionNames(), testing::Not(testing::Contains(show)));
}

TEST(SegmentedControlUseTest, ScreenReadersAreToldTheToolTipAsItStands) {
  const QtApplication application;
  const SegmentRow row({{.label = "Sort", .toolTip = "Newest first & foremost\nor last"},
                        Segment{.toolTip = "Favourites"},
                        {.label = "Plain"}});
  const auto description = [&](std::size_t index) {
    return QAccessible::queryAccessibleInterface(&row.button(index))
        ->text(QAccessible::Description)
        .toStdString();
  };
  EXPECT_EQ(description(0), "Newest first & foremost\nor last");
  EXPECT_EQ(description(1), "Favourites");
  EXPECT_EQ(description(2), "");
}

TEST(SegmentedControlUseTest, TheViewMayBeDestroyedInsideItsSignal) {
  const QtApplication application;
  for (const bool byMouse : {true, false}) {
    SegmentRow row({{.label = "One"}});
    QObject::connect(row.view.get(), &SegmentedControlView::segmentChosen, qApp,
                     [&row] { row.view.reset(); });
    row.view->setFocus();
    if (byMouse) {
      row.click(0);
    } else {
      row.press(Qt::Key_Return);
    }
    EXPECT_EQ(row.view, nullptr);
  }
}

TEST(SegmentedControlUseTest, SegmentsMayGoInsideTheSignal) {
  const QtApplication application;
  SegmentRow row({{.label = "One"}});
  QObject::connect(row.view.get(), &SegmentedControlView::segmentChosen, qApp, [&row] {
    row.control->setSegmentCount(0);
    row.settle();
  });
  row.click(0);
  EXPECT_THAT(row.names(), IsEmpty());
}

TEST(SegmentedControlUseTest, ASegmentMayGoWhileItsMenuIsOpen) {
  const QtApplication application;
  SegmentRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
  whenAMenuOpens([&] {
    row.control->setSegmentCount(0);
    row.settle();
  });
  row.click(0);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_THAT(row.names(), IsEmpty());
  EXPECT_EQ(QApplication::activePopupWidget(), nullptr);
}

TEST(SegmentedControlUseTest, TheViewMayBeDestroyedWhileAMenuIsOpen) {
  const QtApplication application;
  SegmentRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
  whenAMenuOpens([&] { row.view.reset(); });
  // Not a click, whose second half would go to the button that is gone.
  QTest::mousePress(&row.button(0), Qt::LeftButton);
  EXPECT_EQ(row.view, nullptr);
}

TEST(SegmentedControlUseTest, TheViewMayBeDestroyedWhileAKeyHasAMenuOpen) {
  const QtApplication application;
  for (const auto key : {Qt::Key_Space, Qt::Key_Return, Qt::Key_Down}) {
    SegmentRow row({{.label = "Sort", .menu = menuWith("Newest first")}});
    row.view->setFocus();
    whenAMenuOpens([&] { row.view.reset(); });
    row.press(key);
    EXPECT_EQ(row.view, nullptr);
  }
}

TEST(SegmentedControlUseTest, TheControlMayChangeOnOtherThreadsWhileTheViewComesAndGoes) {
  const QtApplication application;
  const auto control = std::make_shared<kvl::SegmentedControl>();
  std::atomic<bool> stop = false;
  std::thread changer([&] {
    for (int i = 0; !stop; ++i)
      control->setSegments(std::vector<Segment>(i % 5, {.label = std::to_string(i)}));
  });
  for (int i = 0; i < 50; ++i) {
    SegmentedControlView view(control);
    view.show();
    QApplication::processEvents();
  }
  stop = true;
  changer.join();
  control->setSegments({{.label = "Last"}});
  const SegmentRow row({{.label = "First"}});
  row.view->setControl(control);
  EXPECT_THAT(row.names(), ElementsAre("Last"));
}

TEST(SegmentedControlUseTest, TheApplicationMayEndFirst) {
  auto application = std::make_unique<QtApplication>();
  SegmentRow row({{.label = "One"}, {.label = "Sort", .menu = menuWith("Newest first")}});
  application->end();
  row.control->setSegmentCount(1);
  row.view.reset();
  row.control->setSegmentCount(0);
}

}  // namespace
