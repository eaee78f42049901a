#include "qt/menu/MenuContents.h"
#include "qt/menu/MenuIcons.h"
#include "qt/menu/MenuLayout.h"
#include "qt/menu/MenuStyle.h"
#include "tests/qt/DrawnImage.h"
#include "tests/qt/MenuScene.h"
#include "tests/qt/PictureMenu.h"

#include <gmock/gmock.h>

#include <QAction>
#include <QPainter>
#include <QProxyStyle>
#include <QScreen>
#include <array>
#include <string>
#include <tuple>

namespace {

using kvl::qt::EntryLayout;
using kvl::qt::MenuContents;
using kvl::qt::MenuEntry;
using kvl::qt::MenuMetrics;
using kvl::qt::MenuStyle;
using kvl::qt::MenuView;
using kvltest::DrawnImage;
using kvltest::eventually;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using testing::Ge;
using testing::Le;
using testing::Lt;

// The parts of a row of an open menu.
EntryLayout rowIn(const MenuView& view, QAction* action) {
  const auto* contents = MenuContents::of(&view);
  return layoutOf(*contents->entry(action), contents->columns(), MenuMetrics(view.font()),
                  view.actionGeometry(action), view.layoutDirection());
}

std::array<QRect, 7> partsOf(const EntryLayout& row) {
  return {row.mark, row.icon, row.title, row.subtitle, row.badge, row.shortcut, row.arrow};
}

QImage grabbed(QWidget& widget, const QRect& rect) {
  return widget.grab(rect).toImage();
}

class MenuStyleTest : public testing::Test {
 protected:
  const kvltest::QtApplication application;
};

// Name of the style, whether right to left.
class MenuStylesTest : public testing::TestWithParam<std::tuple<const char*, bool>> {
 protected:
  MenuStylesTest() { QApplication::setStyle(QLatin1String(std::get<0>(GetParam()))); }

  const kvltest::QtApplication application{{.rightToLeft = std::get<1>(GetParam())}};
};

TEST_P(MenuStylesTest, EveryTextHasItsPlaceInEveryRow) {
  MenuView view(kvltest::pictureMenu());
  kvltest::openAll(view);
  const MenuMetrics metrics(view.font());
  for (QAction* action : view.actions()) {
    const MenuEntry* entry = MenuContents::of(&view)->entry(action);
    if (entry->kind == MenuItem::Kind::separator) continue;
    const EntryLayout row = rowIn(view, action);
    const auto name = entry->title.toStdString();
    EXPECT_THAT(row.title.width(), Ge(metrics.titleMetrics(*entry).horizontalAdvance(entry->title)))
        << name;
    EXPECT_THAT(row.shortcut.width(), Ge(metrics.text.horizontalAdvance(entry->shortcut))) << name;
    const auto parts = partsOf(row);
    for (std::size_t i = 0; i < parts.size(); ++i) {
      EXPECT_TRUE(view.rect().contains(parts[i]) || parts[i].isEmpty()) << name;
      for (std::size_t j = 0; j < i; ++j) EXPECT_FALSE(parts[i].intersects(parts[j])) << name;
    }
  }
}

TEST_P(MenuStylesTest, ActionsOfTheHostLookAsInAnyMenu) {
  QMenu plain;
  MenuView view(nullptr);
  std::vector<QImage> rows;
  for (QMenu* menu : {&plain, static_cast<QMenu*>(&view)}) {
    menu->addAction(QStringLiteral("&About"))->setShortcut(QKeySequence(Qt::Key_F1));
    menu->addSeparator();
    QAction* const marked = menu->addAction(QStringLiteral("Marked"));
    marked->setCheckable(true);
    marked->setChecked(true);
    menu->addAction(QStringLiteral("Last"));  // its lower edge is the menu's
    ASSERT_TRUE(open(*menu));
    menu->setActiveAction(menu->actions().at(0));
    for (QAction* action : menu->actions().first(3))
      rows.push_back(menu->grab().toImage().copy(menu->actionGeometry(action)));
    menu->hide();
  }
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(rows[i + 3], rows[i]) << i;
}

TEST_P(MenuStylesTest, AHighlightedRowIsPaintedInTheHighlight) {
  MenuView view(menuWithTitles({"One", "Two"}));
  ASSERT_TRUE(open(view));
  const QRect row = view.actionGeometry(view.actions().at(1));
  const QPoint free = QStyle::visualRect(view.layoutDirection(), row, row).center();
  const QRect spot(QPoint(free.x(), row.top() + 3), QSize(1, 1));
  const QColor before = grabbed(view, spot).pixelColor(0, 0);
  view.setActiveAction(view.actions().at(1));
  EXPECT_NE(grabbed(view, spot).pixelColor(0, 0), before);
}

std::string nameOfStyle(const testing::TestParamInfo<MenuStylesTest::ParamType>& info) {
  return std::string(std::get<0>(info.param)) + (std::get<1>(info.param) ? "RightToLeft" : "");
}

INSTANTIATE_TEST_SUITE_P(Styles, MenuStylesTest,
                         testing::Combine(testing::Values("fusion", "windows"), testing::Bool()),
                         nameOfStyle);

TEST_P(MenuStylesTest, ADisabledRowIsHighlightedWhereTheStyleDoesSo) {
  const auto item = MenuItem::itemWithTitle("Two");
  item->setEnabled(false);
  MenuView view(menuOf({MenuItem::itemWithTitle("One"), item}));
  ASSERT_TRUE(open(view));
  QAction* const disabled = view.actions().at(1);
  const QImage before = grabbed(view, view.actionGeometry(disabled));
  view.setActiveAction(disabled);
  const bool highlights =
      QApplication::style()->styleHint(QStyle::SH_Menu_AllowActiveAndDisabled, nullptr, &view);
  EXPECT_EQ(grabbed(view, view.actionGeometry(disabled)) != before, highlights);
}

TEST_F(MenuStyleTest, AHostsSectionIsShownWithItsText) {
  MenuView view(nullptr);
  QAction* const section = view.addSection(QStringLiteral("Tools"));
  view.addAction(QStringLiteral("One"));
  ASSERT_TRUE(open(view));
  EXPECT_THAT(view.actionGeometry(section).height(), Ge(view.fontMetrics().height()));
}

TEST_F(MenuStyleTest, AMenuOfAThousandItemsScrollsInOneColumn) {
  MenuView small(menuWithTitles({"Item"}));
  MenuView large(menuWithTitles(std::vector<std::string>(1000, "Item")));
  ASSERT_TRUE(open(small));
  ASSERT_TRUE(open(large));
  EXPECT_EQ(large.width(), small.width());
  EXPECT_THAT(large.height(), Le(large.screen()->geometry().height()));
}

TEST_F(MenuStyleTest, AMenuIsAtMostAsWideAsTheScreen) {
  MenuView view(menuWithTitles({std::string(5000, 'w')}));
  ASSERT_TRUE(open(view));
  const QRect screen = view.screen()->availableGeometry();
  EXPECT_THAT(view.width(), Le(screen.width()));
  EXPECT_THAT(view.width(), Ge(screen.width() - view.fontMetrics().averageCharWidth()));
  EXPECT_TRUE(screen.contains(view.geometry()));
}

TEST_F(MenuStyleTest, ASecondLineIsNotCutWhileTheScreenHasRoom) {
  const auto item = MenuItem::itemWithTitle("Install now");
  MenuView view(menuOf({item}));
  const MenuMetrics metrics(view.font());
  const int wanted = view.screen()->availableGeometry().width() * 9 / 10;
  QString line = QStringLiteral("found");
  while (metrics.small.horizontalAdvance(line) < wanted) line += QStringLiteral(" on May 1");
  item->setSubtitle(line.toStdString());
  ASSERT_TRUE(open(view));
  EXPECT_THAT(rowIn(view, view.actions().at(0)).subtitle.width(),
              Ge(metrics.small.horizontalAdvance(line)));
  EXPECT_TRUE(view.screen()->availableGeometry().contains(view.geometry()));
}

TEST_F(MenuStyleTest, TheSubmenuOfAWideMenuIsOnTheScreen) {
  const auto item = kvltest::itemWithSubmenu(std::string(5000, 'w'), menuWithTitles({"Below"}));
  MenuView view(menuOf({item}));
  ASSERT_TRUE(open(view));
  view.setActiveAction(view.actions().at(0));
  const auto* below = view.actions().at(0)->menu();
  ASSERT_TRUE(eventually([&] { return below->isVisible(); }));
  EXPECT_TRUE(view.screen()->availableGeometry().contains(below->geometry()));
}

TEST_F(MenuStyleTest, FollowsTheApplicationsStyle) {
  MenuView view(kvltest::pictureMenu());
  ASSERT_TRUE(open(view));
  const QSize before = view.sizeHint();
  view.hide();
  QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 20));
  QApplication::setStyle(QStringLiteral("windows"));
  MenuView fresh(kvltest::pictureMenu());
  ASSERT_TRUE(open(fresh));
  ASSERT_TRUE(open(view));
  kvltest::waitFor(fresh);
  kvltest::waitFor(view);
  EXPECT_EQ(view.sizeHint(), fresh.sizeHint());
  EXPECT_THAT(before.height(), Lt(view.sizeHint().height()));
  EXPECT_EQ(view.grab().toImage(), fresh.grab().toImage());
}

TEST_F(MenuStyleTest, FollowsThePaletteOfTheStyle) {
  MenuView view(menuWithTitles({"One"}));
  ASSERT_TRUE(open(view));
  QApplication::setPalette(kvltest::darkPalette());
  EXPECT_TRUE(eventually([&] {
    return grabbed(view, view.rect()).pixelColor(view.rect().center()).lightness() < 128;
  }));
}

// A menu with a plain item and one that has a second line and a badge.
class MenuStyleSheetTest : public MenuStyleTest {
 protected:
  MenuStyleSheetTest() {
    full->setSubtitle("second line");
    full->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  }
  void expectAllIsShown(MenuView& view) {
    ASSERT_TRUE(open(view));
    const auto place = [&](int row) { return view.actionGeometry(view.actions().at(row)); };
    EXPECT_GE(place(1).height(), place(0).height() + view.fontMetrics().height() / 2);
    const QImage before = grabbed(view, place(1));
    full->setBadge(std::nullopt);
    view.refresh();
    EXPECT_NE(grabbed(view, place(1)), before);
    EXPECT_EQ(view.size(), view.sizeHint());
  }

  const kvltest::MenuItemRef full = MenuItem::itemWithTitle("Full");
  const std::shared_ptr<Menu> menu = menuOf({MenuItem::itemWithTitle("Plain"), full});
};

TEST_F(MenuStyleSheetTest, WithoutRulesForItemsLeavesAllThatTheyShow) {
  qApp->setStyleSheet(QStringLiteral("QLabel { color: red; }"));
  MenuView view(menu);
  expectAllIsShown(view);
}

TEST_F(MenuStyleSheetTest, WithRulesForItemsLeavesTheirTitles) {
  MenuView early(menuWithTitles({"One", "Two"}));
  ASSERT_TRUE(open(early));
  early.hide();
  qApp->setStyleSheet(QStringLiteral("QMenu::item { padding: 9px; }"));
  MenuView late(early.menu());
  for (MenuView* view : {&early, &late}) {
    ASSERT_TRUE(open(*view));
    const auto row = [&](int i) { return view->actionGeometry(view->actions().at(i)); };
    EXPECT_GE(row(0).height(), view->fontMetrics().height());
    EXPECT_GE(row(0).width(), view->fontMetrics().horizontalAdvance(QStringLiteral("One")));
    EXPECT_NE(grabbed(*view, row(0)), grabbed(*view, row(1)));
  }
  EXPECT_GE(late.actionGeometry(late.actions().at(0)).height(),
            late.fontMetrics().height() + 2 * 9);
  qApp->setStyleSheet(QString());
}

TEST_F(MenuStyleTest, AStyleOfTheHostsOwnIsAsked) {
  class Tinted : public QProxyStyle {
   public:
    using QProxyStyle::QProxyStyle;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
      QProxyStyle::drawPrimitive(element, option, painter, widget);
      if (element == PE_PanelMenu) painter->fillRect(option->rect, Qt::green);
    }
  };
  QApplication::setStyle(new Tinted(QStringLiteral("fusion")));
  MenuView view(menuWithTitles({"One"}));
  ASSERT_TRUE(open(view));
  const QRect row = view.actionGeometry(view.actions().at(0));
  EXPECT_EQ(grabbed(view, row).pixelColor(3, 3), QColor(Qt::green));
}

TEST(MenuStyleLifeTest, EachApplicationHasAStyleOfItsOwn) {
  for (int i = 0; i < 2; ++i) {
    const kvltest::QtApplication application;
    MenuView view(kvltest::pictureMenu());
    kvltest::openAll(view);
    EXPECT_EQ(view.style(), MenuStyle::shared());
    EXPECT_EQ(MenuStyle::shared()->parent(), qApp);
  }
}

TEST(MenuStyleLifeTest, TheStyleMayChangeAndTheApplicationEndWithMenusLeft) {
  kvltest::QtApplication application;
  MenuView view(menuWithTitles({"One"}));
  ASSERT_TRUE(open(view));
  QApplication::setStyle(QStringLiteral("windows"));
  QApplication::setStyle(QStringLiteral("fusion"));
  application.end();
}

// A menu whose first entry has an icon of one colour.
class MenuIconColourTest : public MenuStyleTest {
 protected:
  void show(bool isTemplate, bool isEnabled = true) {
    item->setImage(std::make_shared<DrawnImage>(kvl::Size{10, 10}, isTemplate));
    item->setEnabled(isEnabled);
    ASSERT_TRUE(open(view));
    ASSERT_TRUE(eventually([&] {
      const auto* contents = MenuContents::of(&view);
      return !contents->icon(*contents->entry(view.actions().at(0))).isNull();
    }));
  }
  [[nodiscard]] QColor iconColour() {
    const QPoint centre = rowIn(view, view.actions().at(0)).icon.center();
    return view.grab().toImage().pixelColor(centre);
  }
  [[nodiscard]] QColor text(QPalette::ColorGroup group, QPalette::ColorRole role) const {
    return view.palette().color(group, role);
  }

  const kvltest::MenuItemRef item = MenuItem::itemWithTitle("One");
  MenuView view{menuOf({item})};
};

TEST_F(MenuIconColourTest, ATemplateHasTheColourOfTheText) {
  show(true);
  EXPECT_EQ(iconColour(), text(QPalette::Active, QPalette::Text));
  view.setActiveAction(view.actions().at(0));
  EXPECT_EQ(iconColour(), text(QPalette::Active, QPalette::HighlightedText));
}

TEST_F(MenuIconColourTest, AHighlightedTemplateIsWhiteWhereTheThemesTextIs) {
  QPalette palette = QApplication::palette();
  palette.setColor(QPalette::Highlight, QColor(0x3d, 0xae, 0xe9));
  QApplication::setPalette(palette);
  show(true);
  view.setActiveAction(view.actions().at(0));
  EXPECT_EQ(iconColour(), QColor(Qt::white));
}

TEST_F(MenuIconColourTest, ATemplateOfADisabledItemHasTheColourOfItsText) {
  show(true, false);
  EXPECT_EQ(iconColour(), text(QPalette::Disabled, QPalette::Text));
}

TEST_F(MenuIconColourTest, AnyOtherImageKeepsItsColours) {
  show(false);
  EXPECT_EQ(iconColour(), QColor(Qt::red));
  view.setActiveAction(view.actions().at(0));
  EXPECT_EQ(iconColour(), QColor(Qt::red));
}

TEST_F(MenuIconColourTest, TheImageOfADisabledItemIsFaint) {
  show(false, false);
  EXPECT_THAT(iconColour().saturation(), Lt(QColor(Qt::red).saturation()));
}

TEST_F(MenuIconColourTest, AnIconIsCentredInItsColumn) {
  show(false);
  const QRect column = rowIn(view, view.actions().at(0)).icon;
  EXPECT_EQ(column.size(), QSize(kvl::qt::MenuIcons::side(), kvl::qt::MenuIcons::side()));
  const QImage picture = grabbed(view, column);
  EXPECT_NE(picture.pixelColor(1, 1), QColor(Qt::red));
  EXPECT_EQ(picture.pixelColor(4, 4), QColor(Qt::red));
}

}  // namespace
