#include "qt/menu/MenuAccessibility.h"
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QAccessible>
#include <QAction>
#include <QMainWindow>
#include <QMenuBar>
#include <QPointer>
#include <QToolButton>
#include <vector>

namespace {

using kvl::qt::MenuView;
using kvltest::itemWithKey;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using testing::ElementsAre;
using testing::IsEmpty;

QAccessibleInterface* spoken(QObject& object) {
  return QAccessible::queryAccessibleInterface(&object);
}

std::string name(const QAccessibleInterface& row) {
  return row.text(QAccessible::Name).toStdString();
}

TEST(MenuSpeechTest, TitleSecondLineAndBadgeAreSaidInThisOrder) {
  kvl::qt::MenuEntry entry;
  entry.title = QStringLiteral("Install now");
  EXPECT_EQ(spokenName(entry).toStdString(), "Install now");
  entry.badge = QStringLiteral("3 updates");
  EXPECT_EQ(spokenName(entry).toStdString(), "Install now, 3 updates");
  entry.subtitle = QStringLiteral("found on May 1");
  EXPECT_EQ(spokenName(entry).toStdString(), "Install now, found on May 1, 3 updates");
}

TEST(MenuSpeechTest, TheDirectionOfATitleEndsWithIt) {
  kvl::qt::MenuEntry entry;
  entry.title = QStringLiteral("התקן \u202e(1)");
  entry.subtitle = QStringLiteral("found on May 1");
  EXPECT_EQ(spokenName(entry), QStringLiteral("\u2068התקן \u202e(1)\u2069, found on May 1"));
}

class MenuAccessibilityTest : public testing::Test {
 protected:
  // The interface of the only item, which is open.
  [[nodiscard]] QAccessibleInterface& rowOf(const kvltest::MenuItemRef& item) {
    view.setMenu(menuOf({MenuItem::itemWithTitle("Before"), item}));
    EXPECT_TRUE(open(view));
    return *spoken(view)->child(1);
  }
  void press(QAccessibleInterface& row) {
    row.actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  }

  const kvltest::QtApplication application;
  MenuView view{nullptr};
};

TEST_F(MenuAccessibilityTest, AMenuIsAPopupMenuWithItsTitle) {
  view.setTitle(QStringLiteral("&Updates && more"));
  EXPECT_EQ(spoken(view)->role(), QAccessible::PopupMenu);
  EXPECT_EQ(name(*spoken(view)), "Updates & more");
}

TEST_F(MenuAccessibilityTest, ItsRowsAreItemsSeparatorsAndHeaders) {
  view.setMenu(menuOf({MenuItem::sectionHeaderWithTitle("Updates"), MenuItem::itemWithTitle("One"),
                       MenuItem::separatorItem()}));
  const auto* menu = spoken(view);
  ASSERT_EQ(menu->childCount(), 3);
  EXPECT_EQ(menu->child(0)->role(), QAccessible::StaticText);
  EXPECT_EQ(name(*menu->child(0)), "Updates");
  EXPECT_FALSE(menu->child(0)->state().disabled);
  EXPECT_FALSE(menu->child(0)->state().focusable);
  EXPECT_EQ(menu->child(1)->role(), QAccessible::MenuItem);
  EXPECT_EQ(menu->child(2)->role(), QAccessible::Separator);
  EXPECT_EQ(menu->child(3), nullptr);
  EXPECT_EQ(menu->child(-1), nullptr);
}

TEST_F(MenuAccessibilityTest, ARowSaysEverythingThatItShows) {
  const auto item = itemWithKey("Install & run", "i");
  item->setSubtitle("found on May 1");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  item->setToolTip("Takes <5 minutes");
  const auto& row = rowOf(item);
  EXPECT_EQ(name(row), "Install & run, found on May 1, 3 updates");
  EXPECT_EQ(row.text(QAccessible::Description), QStringLiteral("Takes <5 minutes"));
  EXPECT_EQ(row.text(QAccessible::Accelerator), QStringLiteral("Ctrl+I"));
}

TEST_F(MenuAccessibilityTest, MarksAreStates) {
  const auto item = MenuItem::itemWithTitle("One");
  const auto& row = rowOf(item);
  EXPECT_FALSE(row.state().checkable);
  item->setState(MenuItem::State::on);
  view.refresh();
  EXPECT_TRUE(row.state().checkable);
  EXPECT_TRUE(row.state().checked);
  EXPECT_FALSE(row.state().checkStateMixed);
  item->setState(MenuItem::State::mixed);
  view.refresh();
  EXPECT_FALSE(row.state().checked);
  EXPECT_TRUE(row.state().checkStateMixed);
}

TEST_F(MenuAccessibilityTest, WhatIsDisabledSaysSoAndOffersNothing) {
  const auto item = MenuItem::itemWithTitle("One");
  item->setEnabled(false);
  auto& row = rowOf(item);
  EXPECT_TRUE(row.state().disabled);
  EXPECT_FALSE(row.state().focusable);
  EXPECT_TRUE(row.actionInterface()->actionNames().isEmpty());
}

TEST_F(MenuAccessibilityTest, WhatIsDisabledTakesTheFocusWhereTheStyleHighlightsIt) {
  QApplication::setStyle(QStringLiteral("windows"));
  const auto item = MenuItem::itemWithTitle("One");
  item->setEnabled(false);
  const auto& row = rowOf(item);
  view.setActiveAction(view.actions().at(1));
  EXPECT_TRUE(row.state().disabled);
  EXPECT_TRUE(row.state().focusable);
  EXPECT_TRUE(row.state().focused);
}

TEST_F(MenuAccessibilityTest, TheActiveRowHasTheFocus) {
  auto& row = rowOf(MenuItem::itemWithTitle("One"));
  EXPECT_FALSE(row.state().focused);
  view.setActiveAction(view.actions().at(1));
  EXPECT_TRUE(row.state().focused);
  EXPECT_TRUE(row.state().selected);
  EXPECT_EQ(spoken(view)->focusChild(), &row);
}

TEST_F(MenuAccessibilityTest, RowsAreFoundWhereTheyAre) {
  auto& row = rowOf(MenuItem::itemWithTitle("One"));
  const QRect place = row.rect();
  EXPECT_EQ(place.size(), view.actionGeometry(view.actions().at(1)).size());
  EXPECT_TRUE(spoken(view)->rect().contains(place));
  EXPECT_EQ(spoken(view)->childAt(place.center().x(), place.center().y()), &row);
  EXPECT_EQ(spoken(view)->indexOfChild(&row), 1);
  EXPECT_EQ(spoken(view)->childAt(0, 0), nullptr);
}

TEST_F(MenuAccessibilityTest, AClosedMenusRowsAreInvisible) {
  auto& row = rowOf(MenuItem::itemWithTitle("One"));
  EXPECT_FALSE(row.state().invisible);
  view.hide();
  EXPECT_TRUE(row.state().invisible);
}

TEST_F(MenuAccessibilityTest, PressingARowChoosesTheItemAndClosesTheMenu) {
  kvltest::Recorder recorder;
  const auto item = recorder.of(MenuItem::itemWithTitle("One"));
  press(rowOf(item));
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  EXPECT_FALSE(view.isVisible());
}

TEST_F(MenuAccessibilityTest, PressingARowMayDestroyTheMenu) {
  auto doomed = std::make_unique<MenuView>(nullptr);
  const auto item = MenuItem::itemWithTitle("One");
  item->setAction([&](const auto&) { doomed.reset(); });
  doomed->setMenu(menuOf({item}));
  ASSERT_TRUE(open(*doomed));
  press(*spoken(*doomed)->child(0));
  EXPECT_EQ(doomed, nullptr);
}

TEST_F(MenuAccessibilityTest, ASubmenuIsTheChildOfItsRowAndIsOpenedByIt) {
  auto& row = rowOf(itemWithSubmenu("More", menuWithTitles({"Inner"})));
  EXPECT_TRUE(row.state().hasPopup);
  ASSERT_EQ(row.childCount(), 1);
  auto* const below = row.child(0);
  EXPECT_EQ(below->role(), QAccessible::PopupMenu);
  EXPECT_EQ(below->parent(), &row);
  EXPECT_EQ(row.indexOfChild(below), 0);
  EXPECT_EQ(name(*below->child(0)), "Inner");
  row.actionInterface()->doAction(QAccessibleActionInterface::showMenuAction());
  EXPECT_TRUE(kvltest::eventually([&] { return !below->state().invisible; }));
}

TEST_F(MenuAccessibilityTest, ASubmenuWhoseViewIsNotMadeYetIsOpenedToo) {
  auto menu = menuWithTitles({"Innermost"});
  for (int i = 0; i < 30; ++i) menu = menuOf({itemWithSubmenu("More", menu)});
  view.setMenu(menu);
  auto* below = &view;
  while (auto* next = qobject_cast<MenuView*>(below->actions().at(0)->menu())) below = next;
  ASSERT_TRUE(open(*below));
  auto& row = *spoken(*below)->child(0);
  EXPECT_THAT(row.actionInterface()->actionNames(),
              ElementsAre(QAccessibleActionInterface::showMenuAction()));
  EXPECT_EQ(row.childCount(), 0);
  row.actionInterface()->doAction(QAccessibleActionInterface::showMenuAction());
  EXPECT_TRUE(kvltest::eventually(
      [&] { return row.childCount() == 1 && !row.child(0)->state().invisible; }));
}

TEST_F(MenuAccessibilityTest, TheMenuIsBelowWhereItHangs) {
  EXPECT_EQ(rowOf(MenuItem::itemWithTitle("One")).parent(), spoken(view));
  QMainWindow window;
  window.menuBar()->addMenu(QStringLiteral("Edit"));
  window.menuBar()->addMenu(&view);
  EXPECT_EQ(spoken(view)->parent(), spoken(*window.menuBar())->child(1));
  window.menuBar()->removeAction(view.menuAction());
  QToolButton button;
  button.setMenu(&view);
  EXPECT_EQ(spoken(view)->parent(), spoken(button));
  button.setMenu(nullptr);
  EXPECT_NE(spoken(view)->parent(), nullptr);
}

TEST_F(MenuAccessibilityTest, ActionsOfTheHostAreSpokenOfToo) {
  QAction* const action = view.addAction(QStringLiteral("&About"));
  action->setShortcut(QKeySequence(Qt::Key_F1));
  action->setCheckable(true);
  action->setChecked(true);
  view.addSeparator();
  const auto* row = spoken(view)->child(0);
  EXPECT_EQ(name(*row), "About");
  EXPECT_EQ(row->text(QAccessible::Accelerator), QStringLiteral("F1"));
  EXPECT_TRUE(row->text(QAccessible::Description).isEmpty());
  EXPECT_TRUE(row->state().checked);
  EXPECT_EQ(spoken(view)->child(1)->role(), QAccessible::Separator);
}

TEST_F(MenuAccessibilityTest, ARowGoesAwayWithItsAction) {
  QAction* const action = view.addAction(QStringLiteral("About"));
  auto* const row = spoken(view)->child(0);
  const auto id = QAccessible::uniqueId(row);
  EXPECT_EQ(QAccessible::accessibleInterface(id), row);
  view.removeAction(action);
  EXPECT_FALSE(row->isValid());
  EXPECT_TRUE(row->state().invalid);
  EXPECT_TRUE(row->rect().isEmpty());
  delete action;
  EXPECT_EQ(QAccessible::accessibleInterface(id), nullptr);
  EXPECT_EQ(spoken(view)->childCount(), 0);
}

TEST_F(MenuAccessibilityTest, RowsGoAwayWithTheMenu) {
  auto doomed = std::make_unique<MenuView>(menuWithTitles({"One", "Two"}));
  const auto menu = QAccessible::uniqueId(spoken(*doomed));
  const auto row = QAccessible::uniqueId(spoken(*doomed)->child(1));
  doomed.reset();
  EXPECT_EQ(QAccessible::accessibleInterface(menu), nullptr);
  EXPECT_EQ(QAccessible::accessibleInterface(row), nullptr);
}

TEST_F(MenuAccessibilityTest, ARowThatIsNoneAnyMoreIsHarmless) {
  QAction* const action = view.addAction(QStringLiteral("About"));
  auto* const row = spoken(view)->child(0);
  view.removeAction(action);
  press(*row);
  EXPECT_EQ(spoken(view)->indexOfChild(row), -1);
  EXPECT_EQ(spoken(view)->indexOfChild(nullptr), -1);
  delete action;
}

class MenuAnnouncementTest : public testing::Test {
 protected:
  MenuAnnouncementTest() { before.title = after.title = QStringLiteral("One"); }

  // What is told when an entry has changed from `before` to `after`, each of the second row.
  [[nodiscard]] std::vector<QAccessible::Event> told() {
    std::vector<QAccessible::Event> types;
    for (const auto& event : changeEvents(view, *view.actions().at(1), before, after)) {
      EXPECT_EQ(event->accessibleInterface(), spoken(view)->child(1));
      types.push_back(event->type());
    }
    return types;
  }

  const kvltest::QtApplication application;
  MenuView view{menuWithTitles({"Before", "One"})};
  kvl::qt::MenuEntry before;
  kvl::qt::MenuEntry after;
};

TEST_F(MenuAnnouncementTest, WhateverChangesTheNameIsToldAsANewName) {
  after.title = QStringLiteral("Other");
  EXPECT_THAT(told(), ElementsAre(QAccessible::NameChanged));
  after = before;
  after.subtitle = QStringLiteral("second line");
  EXPECT_THAT(told(), ElementsAre(QAccessible::NameChanged));
  after = before;
  after.badge = QStringLiteral("3 updates");
  EXPECT_THAT(told(), ElementsAre(QAccessible::NameChanged));
}

TEST_F(MenuAnnouncementTest, ANewStateIsTold) {
  after.state = MenuItem::State::mixed;
  EXPECT_THAT(told(), ElementsAre(QAccessible::StateChanged));
  after = before;
  after.enabled = false;
  EXPECT_THAT(told(), ElementsAre(QAccessible::StateChanged));
}

TEST_F(MenuAnnouncementTest, AStateChangeSaysWhatHasChanged) {
  before.state = MenuItem::State::on;
  after.state = MenuItem::State::mixed;
  const auto events = changeEvents(view, *view.actions().at(1), before, after);
  ASSERT_EQ(events.size(), 1U);
  const auto changed =
      static_cast<const QAccessibleStateChangeEvent&>(*events.front()).changedStates();
  EXPECT_TRUE(changed.checked);
  EXPECT_TRUE(changed.checkStateMixed);
  EXPECT_FALSE(changed.checkable);
  EXPECT_FALSE(changed.disabled);
}

TEST_F(MenuAnnouncementTest, ToolTipsAndKeysAreTold) {
  after.toolTip = QStringLiteral("Why");
  after.shortcut = QStringLiteral("Ctrl+I");
  EXPECT_THAT(told(),
              ElementsAre(QAccessible::DescriptionChanged, QAccessible::AcceleratorChanged));
}

TEST_F(MenuAnnouncementTest, WhatStaysIsNotTold) {
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(MenuAnnouncementTest, NothingIsToldOfAnActionThatHasLeft) {
  after.title = QStringLiteral("Other");
  const QAction elsewhere;
  EXPECT_THAT(changeEvents(view, elsewhere, before, after), IsEmpty());
}

TEST_F(MenuAnnouncementTest, RowsHaveTheNumbersThatTheMenuItselfTells) {
  view.addAction(QStringLiteral("Host"));
  for (int i = 0; i < view.actions().size(); ++i) {
    QAccessibleEvent focus(&view, QAccessible::Focus);  // as `QMenu` sends it
    focus.setChild(i);
    EXPECT_EQ(focus.accessibleInterface()->text(QAccessible::Name), view.actions().at(i)->text());
  }
}

}  // namespace
