#include "qt/menu/MenuContents.h"
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QHelpEvent>
#include <QToolButton>
#include <QToolTip>

namespace {

using kvl::qt::MenuView;
using kvltest::click;
using kvltest::eventually;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using kvltest::Recorder;
using kvltest::runPostedEvents;
using kvltest::titlesOf;
using testing::ElementsAre;
using testing::IsEmpty;

class MenuViewTest : public testing::Test {
 protected:
  // The items that the view says have been chosen.
  std::vector<MenuItemRef>& chosenIn(MenuView& view) {
    QObject::connect(&view, &MenuView::itemChosen,
                     [this](const MenuItemRef& item) { chosen.push_back(item); });
    return chosen;
  }

  kvltest::QtApplication application;
  Recorder recorder;
  std::vector<MenuItemRef> chosen;
};

TEST_F(MenuViewTest, AnItemIsActivatedByTheMouse) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  MenuView view(menuOf({item}));
  chosenIn(view);
  ASSERT_TRUE(open(view));
  click(view, view.actionOf(*item));
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  EXPECT_THAT(chosen, ElementsAre(item));
  EXPECT_FALSE(view.isVisible());
}

TEST_F(MenuViewTest, TheArrowKeysAndEnterActivateAnItem) {
  const auto first = recorder.of(MenuItem::itemWithTitle("First"));
  const auto second = recorder.of(MenuItem::itemWithTitle("Second"));
  MenuView view(menuOf({first, MenuItem::separatorItem(), second}));
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  EXPECT_EQ(view.activeAction(), view.actionOf(*first));
  QTest::keyClick(&view, Qt::Key_Down);
  EXPECT_EQ(view.activeAction(), view.actionOf(*second));
  QTest::keyClick(&view, Qt::Key_Enter);
  EXPECT_THAT(recorder.sent, ElementsAre(second));
}

TEST_F(MenuViewTest, EscapeClosesTheMenuAndChoosesNothing) {
  MenuView view(menuOf({recorder.of(MenuItem::itemWithTitle("Open"))}));
  chosenIn(view);
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Escape);
  EXPECT_FALSE(view.isVisible());
  EXPECT_THAT(recorder.sent, IsEmpty());
  EXPECT_THAT(chosen, IsEmpty());
}

TEST_F(MenuViewTest, AnAmpersandIsNoMnemonic) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Black & White"));
  MenuView view(menuOf({item}));
  EXPECT_EQ(view.actionOf(*item)->text(), QStringLiteral("Black && White"));
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, ' ');
  QTest::keyClick(&view, 'w');
  EXPECT_THAT(recorder.sent, IsEmpty());
}

TEST_F(MenuViewTest, ASubmenuOpensWithTheKeyTowardsItsSide) {
  const auto below = recorder.of(MenuItem::itemWithTitle("Below"));
  const auto item = itemWithSubmenu("More", menuOf({below}));
  MenuView view(menuOf({item}));
  auto* subview = view.actionOf(*item)->menu();
  ASSERT_TRUE(open(view));
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Right);
  ASSERT_TRUE(eventually([&] { return subview->isVisible(); }));
  EXPECT_GE(subview->x(), view.x() + view.width() / 2);
  QTest::keyClick(subview, Qt::Key_Left);
  EXPECT_FALSE(subview->isVisible());
  EXPECT_TRUE(view.isVisible());
}

TEST(MenuViewRightToLeftTest, ASubmenuOpensWithTheKeyTowardsItsSide) {
  const kvltest::QtApplication application({.rightToLeft = true});
  const auto item = itemWithSubmenu("More", menuWithTitles({"Below"}));
  MenuView view(menuOf({item}));
  auto* subview = view.actionOf(*item)->menu();
  view.popup(QPoint(800, 100));
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view, 60'000));
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Right);
  EXPECT_FALSE(subview->isVisible());
  QTest::keyClick(&view, Qt::Key_Left);
  ASSERT_TRUE(eventually([&] { return subview->isVisible(); }));
  EXPECT_LE(subview->x() + subview->width(), view.x() + view.width() / 2);
  QTest::keyClick(subview, Qt::Key_Right);
  EXPECT_FALSE(subview->isVisible());
}

TEST_F(MenuViewTest, EachMenuAboveTellsWhatIsChosenInASubmenu) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Deep"));
  const auto middle = itemWithSubmenu("Middle", menuOf({item}));
  const auto top = itemWithSubmenu("Top", menuOf({middle}));
  MenuView view(menuOf({top}));
  auto* middleView = qobject_cast<MenuView*>(view.actionOf(*top)->menu());
  ASSERT_NE(middleView, nullptr);
  auto* deepView = qobject_cast<MenuView*>(middleView->actionOf(*middle)->menu());
  ASSERT_NE(deepView, nullptr);
  chosenIn(view);
  chosenIn(*middleView);
  chosenIn(*deepView);
  deepView->actionOf(*item)->trigger();
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  EXPECT_THAT(chosen, ElementsAre(item, item, item));
}

TEST_F(MenuViewTest, ASubmenuIsChosenFromWithTheMouse) {
  const auto below = recorder.of(MenuItem::itemWithTitle("Below"));
  const auto item = itemWithSubmenu("More", menuOf({below}));
  MenuView view(menuOf({item}));
  auto* subview = qobject_cast<MenuView*>(view.actionOf(*item)->menu());
  ASSERT_TRUE(open(view));
  click(view, view.actionOf(*item));
  ASSERT_TRUE(eventually([&] { return subview->isVisible(); }));
  ASSERT_TRUE(QTest::qWaitForWindowExposed(subview, 60'000));
  click(*subview, subview->actionOf(*below));
  EXPECT_THAT(recorder.sent, ElementsAre(below));
  EXPECT_FALSE(view.isVisible());
}

TEST_F(MenuViewTest, ADisabledItemIsNotChosen) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  item->setEnabled(false);
  MenuView view(menuOf({item}));
  chosenIn(view);
  ASSERT_TRUE(open(view));
  click(view, view.actionOf(*item));
  QTest::keyClick(&view, Qt::Key_Down);
  QTest::keyClick(&view, Qt::Key_Enter);
  view.actionOf(*item)->trigger();
  EXPECT_THAT(recorder.sent, IsEmpty());
  EXPECT_THAT(chosen, IsEmpty());
}

TEST_F(MenuViewTest, AnItemThatHasJustBeenDisabledIsNotChosen) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  MenuView view(menuOf({item}));
  chosenIn(view);
  item->setEnabled(false);  // which the view has not heard of yet
  view.actionOf(*item)->trigger();
  EXPECT_THAT(recorder.sent, IsEmpty());
  EXPECT_THAT(chosen, IsEmpty());
}

TEST_F(MenuViewTest, AnItemWhoseTargetIsGoneSendsNothing) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  auto target = std::make_shared<int>(1);
  item->setTarget(target);
  MenuView view(menuOf({item}));
  target = nullptr;
  ASSERT_TRUE(open(view));
  click(view, view.actionOf(*item));
  EXPECT_THAT(recorder.sent, IsEmpty());
}

TEST_F(MenuViewTest, AnItemWithoutAnActionIsChosenAllTheSame) {
  const auto item = MenuItem::itemWithTitle("Open");
  MenuView view(menuOf({item}));
  chosenIn(view);
  view.actionOf(*item)->trigger();
  EXPECT_THAT(chosen, ElementsAre(item));
}

TEST_F(MenuViewTest, TheMarkIsTheModelsAlsoAfterTheItemIsChosen) {
  const auto item = MenuItem::itemWithTitle("Show");
  item->setState(MenuItem::State::on);
  std::vector<bool> checked;
  MenuView view(menuOf({item}));
  auto* action = view.actionOf(*item);
  item->setAction([&](const auto&) { checked.push_back(action->isChecked()); });
  EXPECT_TRUE(action->isChecked());
  action->trigger();
  checked.push_back(action->isChecked());
  EXPECT_THAT(checked, ElementsAre(true, true));
}

TEST_F(MenuViewTest, TheActionOfAnItemShowsWhatActionsCan) {
  const auto item = MenuItem::itemWithTitle("Title");
  item->setKeyEquivalent("t");
  item->setToolTip("a < b");
  item->setState(MenuItem::State::mixed);
  item->setEnabled(false);
  MenuView view(menuOf({item}));
  const auto* action = view.actionOf(*item);
  EXPECT_EQ(action->text(), QStringLiteral("Title"));
  EXPECT_EQ(action->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_T));
  EXPECT_TRUE(action->toolTip().contains(QStringLiteral("a &lt; b")));
  EXPECT_TRUE(action->isCheckable());
  EXPECT_FALSE(action->isChecked());
  EXPECT_FALSE(action->isEnabled());
  EXPECT_FALSE(action->isSeparator());
}

TEST_F(MenuViewTest, TheActionOfAnItemHasItsIconOnceItIsDrawn) {
  const std::string square =
      "<svg xmlns='http://www.w3.org/2000/svg' width='16' height='16'>"
      "<rect width='16' height='16' fill='#ff0000'/></svg>";
  const auto item = MenuItem::itemWithTitle("Open");
  MenuView view(menuOf({item}));
  QToolButton button;
  button.setDefaultAction(view.actionOf(*item));
  EXPECT_TRUE(button.icon().isNull());
  item->setImage(kvl::Image::imageWithData(kvl::Data::fromText(square)));
  const auto pixel = [&] {
    const auto image = button.icon().pixmap(16).toImage();
    return image.isNull() ? QColor() : image.pixelColor(image.rect().center());
  };
  EXPECT_TRUE(eventually([&] { return pixel() == QColor(Qt::red); }));
  item->setImage(nullptr);
  runPostedEvents();
  EXPECT_TRUE(button.icon().isNull());
}

TEST_F(MenuViewTest, SectionHeadersAreSeparatorsWithText) {
  MenuView view(menuOf({MenuItem::sectionHeaderWithTitle("Recent"), MenuItem::separatorItem()}));
  const auto actions = view.actions();
  ASSERT_EQ(actions.size(), 2);
  EXPECT_TRUE(actions[0]->isSeparator());
  EXPECT_EQ(actions[0]->text(), QStringLiteral("Recent"));
  EXPECT_TRUE(actions[1]->isSeparator());
  EXPECT_EQ(actions[1]->text(), QString());
}

TEST_F(MenuViewTest, ItemsAndActionsFindEachOther) {
  const auto item = MenuItem::itemWithTitle("Open");
  MenuView view(menuOf({item}));
  MenuView other(menuOf({item}));
  QAction own;
  EXPECT_EQ(view.itemOf(view.actionOf(*item)), item);
  EXPECT_EQ(view.itemOf(other.actionOf(*item)), nullptr);
  EXPECT_EQ(view.itemOf(&own), nullptr);
  EXPECT_EQ(view.itemOf(nullptr), nullptr);
  EXPECT_EQ(view.actionOf(*MenuItem::itemWithTitle("Open")), nullptr);
}

TEST_F(MenuViewTest, AnItemIsChosenInEachViewThatShowsIt) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  MenuView first(menuOf({item}));
  MenuView second(menuOf({item}));
  first.actionOf(*item)->trigger();
  second.actionOf(*item)->trigger();
  EXPECT_THAT(recorder.sent, ElementsAre(item, item));
}

TEST_F(MenuViewTest, AnItemThatIsInTheMenuTwiceIsShownTwice) {
  const auto item = recorder.of(MenuItem::itemWithTitle("Open"));
  MenuView view(menuOf({item, item}));
  ASSERT_THAT(titlesOf(view), ElementsAre("Open", "Open"));
  item->setTitle("Close");
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("Close", "Close"));
  for (auto* action : view.actions()) action->trigger();
  EXPECT_THAT(recorder.sent, ElementsAre(item, item));
}

TEST_F(MenuViewTest, ActionsOfTheHostStayBelow) {
  const auto menu = menuWithTitles({"Open"});
  MenuView view(menu);
  view.addAction(QStringLiteral("Quit"));
  menu->addItem(MenuItem::itemWithTitle("Close"));
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("Open", "Close", "Quit"));
  menu->removeAllItems();
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("Quit"));
  menu->addItem(MenuItem::itemWithTitle("Anew"));
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("Anew", "Quit"));
}

TEST_F(MenuViewTest, AViewWithoutAMenuIsEmptyUntilItGetsOne) {
  MenuView view(nullptr, QStringLiteral("File"));
  EXPECT_EQ(view.title(), QStringLiteral("File"));
  EXPECT_EQ(view.menu(), nullptr);
  EXPECT_TRUE(view.isEmpty());
  const auto menu = menuWithTitles({"Open"});
  view.setMenu(menu);
  EXPECT_EQ(view.menu(), menu);
  EXPECT_THAT(titlesOf(view), ElementsAre("Open"));
  view.setMenu(nullptr);
  EXPECT_TRUE(view.isEmpty());
}

TEST_F(MenuViewTest, AHostThatClearsTheMenuDestroysNoActionOfTheModels) {
  const auto menu = menuWithTitles({"a", "b"});
  MenuView view(menu);
  view.addAction(QStringLiteral("host"));
  view.clear();
  menu->items()[0]->setTitle("c");
  menu->addItem(MenuItem::itemWithTitle("d"));
  runPostedEvents();
  EXPECT_EQ(view.actionOf(*menu->items()[0])->text(), QStringLiteral("c"));
  EXPECT_THAT(titlesOf(view), ElementsAre("d"));
}

TEST_F(MenuViewTest, ItemsComeBeforeActionsThatAHostAddsAfterItHasClearedTheMenu) {
  const auto menu = menuWithTitles({"a", "b"});
  MenuView view(menu);
  view.clear();
  view.addAction(QStringLiteral("host"));
  menu->addItem(MenuItem::itemWithTitle("c"));
  const auto items = menu->items();
  menu->removeAllItems();
  for (const auto row : {1U, 2U, 0U}) menu->addItem(items[row]);
  runPostedEvents();
  EXPECT_THAT(titlesOf(view), ElementsAre("c", "host"));
}

TEST_F(MenuViewTest, TheColumnOfMarksStaysWhenTheLastMarkGoes) {
  const auto item = MenuItem::itemWithTitle("a");
  MenuView view(menuOf({item}));
  const auto hasMarks = [&] {
    runPostedEvents();
    return kvl::qt::MenuContents::of(&view)->columns().marks;
  };
  EXPECT_FALSE(hasMarks());
  item->setState(MenuItem::State::on);
  EXPECT_TRUE(hasMarks());
  item->setState(MenuItem::State::off);
  EXPECT_TRUE(hasMarks());
  view.setMenu(menuWithTitles({"b"}));
  EXPECT_FALSE(hasMarks());
}

TEST_F(MenuViewTest, BadgesFollowTheLanguage) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  MenuView view(menuOf({item}));
  const auto badge = [&] {
    return kvl::qt::MenuContents::of(&view)->entry(view.actionOf(*item))->badge;
  };
  const auto before = badge();
  QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
  QEvent change(QEvent::LanguageChange);
  QCoreApplication::sendEvent(&view, &change);
  EXPECT_NE(badge(), before);
}

TEST_F(MenuViewTest, ATitleThatIsCutShortIsSaidInFull) {
  const std::string longTitle(600, 'w');
  const auto cut = MenuItem::itemWithTitle(longTitle);
  const auto whole = MenuItem::itemWithTitle("Open");
  MenuView view(menuOf({whole, cut}));
  ASSERT_TRUE(open(view));
  const auto pointAt = [&](const MenuItemRef& item) {
    const QPoint place = view.actionGeometry(view.actionOf(*item)).center();
    QHelpEvent help(QEvent::ToolTip, place, view.mapToGlobal(place));
    QCoreApplication::sendEvent(&view, &help);
    return QToolTip::text().remove(QChar(0x200b));  // where the long word may be broken
  };
  EXPECT_FALSE(pointAt(whole).contains(QStringLiteral("Open")));
  EXPECT_TRUE(pointAt(cut).contains(QString::fromStdString(longTitle)));
}

TEST_F(MenuViewTest, TheLinesOfATitleThatIsCutShortKeepTheirDirections) {
  const auto item = MenuItem::itemWithTitle("א" + std::string(600, 'w'));
  item->setSubtitle("second (line)");
  MenuView view(menuOf({item}));
  ASSERT_TRUE(open(view));
  const QPoint place = view.actionGeometry(view.actions().at(0)).center();
  QHelpEvent help(QEvent::ToolTip, place, view.mapToGlobal(place));
  QCoreApplication::sendEvent(&view, &help);
  EXPECT_TRUE(QToolTip::text().contains(QStringLiteral("w\u2069\nsecond (line)")));
}

TEST_F(MenuViewTest, WhatChangedShowsWhenTheMenuOpensAtOnce) {
  const auto menu = menuWithTitles({"Open"});
  MenuView view(menu);
  menu->addItem(MenuItem::itemWithTitle("Close"));
  view.popup(QPoint(100, 100));
  EXPECT_THAT(titlesOf(view), ElementsAre("Open", "Close"));
}

TEST_F(MenuViewTest, RefreshTakesOverWhatHasChanged) {
  const auto menu = menuWithTitles({"Open"});
  MenuView view(menu);
  menu->items()[0]->setTitle("Close");
  EXPECT_THAT(titlesOf(view), ElementsAre("Open"));
  view.refresh();
  EXPECT_THAT(titlesOf(view), ElementsAre("Close"));
}

}  // namespace
