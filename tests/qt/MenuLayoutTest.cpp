#include "qt/menu/MenuLayout.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>

#include <array>
#include <string>

namespace {

using kvl::MenuItem;
using kvl::qt::EntryLayout;
using kvl::qt::layoutOf;
using kvl::qt::MenuColumns;
using kvl::qt::MenuEntry;
using kvl::qt::MenuMetrics;
using kvl::qt::sizeOf;
using testing::Ge;
using testing::Gt;
using testing::Le;

constexpr int kWidest = 800;

class MenuLayoutTest : public testing::Test {
 protected:
  MenuLayoutTest() {
    full.title = QStringLiteral("Install now");
    full.subtitle = QStringLiteral("Found on May 1");
    full.badge = QStringLiteral("3 updates");
    full.shortcut = QStringLiteral("Ctrl+I");
    full.state = MenuItem::State::on;
    full.hasSubmenu = true;
    full.expectsIcon = true;
    columns.marks = columns.icons = true;
    columns.shortcutWidth = metrics.text.horizontalAdvance(full.shortcut);
  }

  // As `QMenu` does it: what the entry needs, and the text of shortcuts besides.
  [[nodiscard]] QRect placeOf(const MenuEntry& entry) const {
    const QSize size = sizeOf(entry, columns, metrics, kWidest);
    return {30, 200, size.width() + columns.shortcutWidth, size.height()};
  }
  [[nodiscard]] EntryLayout row(const MenuEntry& entry,
                                Qt::LayoutDirection direction = Qt::LeftToRight) const {
    return layoutOf(entry, columns, metrics, placeOf(entry), direction);
  }

  static std::array<QRect, 7> partsOf(const EntryLayout& row) {
    return {row.mark, row.icon, row.title, row.subtitle, row.badge, row.shortcut, row.arrow};
  }

  const kvltest::QtApplication application;
  const MenuMetrics metrics{QApplication::font()};
  MenuColumns columns;
  MenuEntry full;
};

TEST_F(MenuLayoutTest, PartsGoFromMarkToArrow) {
  const EntryLayout parts = row(full);
  EXPECT_LT(parts.mark.right(), parts.icon.left());
  EXPECT_LT(parts.icon.right(), parts.title.left());
  EXPECT_LT(parts.title.right(), parts.badge.left());
  EXPECT_LT(parts.badge.right(), parts.shortcut.left());
  EXPECT_LT(parts.shortcut.right(), parts.arrow.left());
}

TEST_F(MenuLayoutTest, TheSecondLineIsBelowTheTitle) {
  const EntryLayout parts = row(full);
  EXPECT_EQ(parts.subtitle.left(), parts.title.left());
  EXPECT_EQ(parts.subtitle.top(), parts.title.bottom() + 1);
}

TEST_F(MenuLayoutTest, NoPartsOverlapOrLeaveTheRow) {
  for (const auto direction : {Qt::LeftToRight, Qt::RightToLeft}) {
    const auto parts = partsOf(row(full, direction));
    for (std::size_t i = 0; i < parts.size(); ++i) {
      EXPECT_TRUE(placeOf(full).contains(parts[i])) << i;
      for (std::size_t j = 0; j < i; ++j)
        EXPECT_FALSE(parts[i].intersects(parts[j])) << i << " and " << j;
    }
  }
}

TEST_F(MenuLayoutTest, TextsThatFitAreNotCut) {
  const EntryLayout parts = row(full);
  EXPECT_THAT(parts.title.width(), Ge(metrics.text.horizontalAdvance(full.title)));
  EXPECT_THAT(parts.subtitle.width(), Ge(metrics.small.horizontalAdvance(full.subtitle)));
  EXPECT_THAT(parts.badge.width(), Ge(metrics.small.horizontalAdvance(full.badge)));
  EXPECT_THAT(parts.shortcut.width(), Ge(metrics.text.horizontalAdvance(full.shortcut)));
}

TEST_F(MenuLayoutTest, RightToLeftIsTheMirrorImage) {
  const QRect place = placeOf(full);
  const auto left = partsOf(row(full, Qt::LeftToRight));
  const auto right = partsOf(row(full, Qt::RightToLeft));
  for (std::size_t i = 0; i < left.size(); ++i) {
    EXPECT_EQ(right[i].size(), left[i].size());
    EXPECT_EQ(right[i].top(), left[i].top());
    EXPECT_EQ(place.right() - right[i].right(), left[i].left() - place.left()) << i;
  }
}

TEST_F(MenuLayoutTest, WhatAnEntryHasNotHasNoPlace) {
  MenuEntry plain;
  plain.title = QStringLiteral("Quit");
  const EntryLayout parts = row(plain);
  for (const QRect& part :
       {parts.mark, parts.icon, parts.subtitle, parts.badge, parts.shortcut, parts.arrow})
    EXPECT_TRUE(part.isEmpty());
}

TEST_F(MenuLayoutTest, TitlesOfOneMenuStartAtOnePlace) {
  MenuEntry plain;
  plain.title = QStringLiteral("Quit");
  EXPECT_EQ(row(plain).title.left(), row(full).title.left());
}

TEST_F(MenuLayoutTest, BadgesStandInOneColumnWhetherThereIsAShortcutOrNot) {
  MenuEntry other;
  other.title = QStringLiteral("Look for updates");
  other.badge = QStringLiteral("12,345 updates");
  const QRect place(30, 200, kWidest, placeOf(full).height());
  for (const auto direction : {Qt::LeftToRight, Qt::RightToLeft}) {
    const auto badge = [&](const MenuEntry& entry) {
      return layoutOf(entry, columns, metrics, place, direction).badge;
    };
    const bool leftwards = direction == Qt::RightToLeft;
    EXPECT_EQ(leftwards ? badge(other).left() : badge(other).right(),
              leftwards ? badge(full).left() : badge(full).right());
  }
}

TEST_F(MenuLayoutTest, ABadgeInFrontOfAnEmptyColumnCutsNothing) {
  full.shortcut.clear();
  const EntryLayout parts = row(full);
  EXPECT_THAT(parts.title.width(), Ge(metrics.text.horizontalAdvance(full.title)));
  EXPECT_THAT(parts.subtitle.width(), Ge(metrics.small.horizontalAdvance(full.subtitle)));
  EXPECT_THAT(parts.badge.width(), Ge(metrics.small.horizontalAdvance(full.badge)));
  EXPECT_LT(parts.title.right(), parts.badge.left());
}

TEST_F(MenuLayoutTest, WithoutShortcutsBadgesAreAtTheArrows) {
  full.shortcut.clear();
  columns.shortcutWidth = 0;
  EXPECT_EQ(row(full).badge.right() + 1, row(full).arrow.left());
}

TEST_F(MenuLayoutTest, WithoutMarksAndIconsTitlesStartAtTheEdge) {
  columns.marks = columns.icons = false;
  MenuEntry plain;
  plain.title = QStringLiteral("Quit");
  EXPECT_EQ(row(plain).title.left(), placeOf(plain).left() + metrics.edge);
}

TEST_F(MenuLayoutTest, ASecondLineMakesTheRowHigherByALineOfSmallPrint) {
  MenuEntry plain = full;
  plain.subtitle.clear();
  EXPECT_GT(placeOf(full).height(), placeOf(plain).height());
  EXPECT_THAT(placeOf(full).height() - placeOf(plain).height(), Le(metrics.small.height()));
}

TEST_F(MenuLayoutTest, SmallPrintIsSmallerButNeverBelowSevenPoints) {
  EXPECT_LT(metrics.smallFont.pointSizeF(), metrics.font.pointSizeF());
  QFont tiny = metrics.font;
  tiny.setPointSizeF(7.5);
  EXPECT_DOUBLE_EQ(MenuMetrics(tiny).smallFont.pointSizeF(), 7);
}

TEST_F(MenuLayoutTest, FontsInPixelsAreMadeSmallerToo) {
  QFont font = metrics.font;
  font.setPixelSize(20);
  EXPECT_EQ(MenuMetrics(font).smallFont.pixelSize(), 17);
}

TEST_F(MenuLayoutTest, EverythingGrowsWithTheFont) {
  QFont large = metrics.font;
  large.setPointSizeF(30);
  const MenuMetrics grown(large);
  EXPECT_THAT(grown.mark, Gt(2 * metrics.mark));
  EXPECT_THAT(sizeOf(full, columns, grown, 4 * kWidest).height(), Gt(2 * placeOf(full).height()));
}

TEST_F(MenuLayoutTest, LongTextsAreCutAtTheWidestMenu) {
  full.title = full.subtitle = QString(1000, QLatin1Char('w'));
  EXPECT_EQ(placeOf(full).width(), kWidest);
  const auto parts = partsOf(row(full));
  for (std::size_t i = 0; i < parts.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) EXPECT_FALSE(parts[i].intersects(parts[j]));
}

TEST_F(MenuLayoutTest, WhereThereIsNoRoomNothingHasANegativeSize) {
  const EntryLayout parts = layoutOf(full, columns, metrics, QRect(0, 0, 20, 5), Qt::RightToLeft);
  for (const QRect& part : partsOf(parts)) {
    EXPECT_THAT(part.width(), Ge(0));
    EXPECT_THAT(part.height(), Ge(0));
  }
}

TEST_F(MenuLayoutTest, ASectionHeaderIsBoldSmallPrintWithMoreRoomAbove) {
  MenuEntry header;
  header.kind = MenuItem::Kind::sectionHeader;
  header.title = QStringLiteral("Updates");
  const EntryLayout parts = row(header);
  EXPECT_TRUE(metrics.titleFont(header).bold());
  EXPECT_LT(metrics.titleFont(header).pointSizeF(), metrics.font.pointSizeF());
  EXPECT_GT(parts.title.top() - placeOf(header).top(),
            placeOf(header).bottom() - parts.title.bottom());
  EXPECT_EQ(parts.title.left(), row(full).title.left());
}

TEST_F(MenuLayoutTest, ATitleInSmallPrintHasThatFont) {
  full.smallTitle = true;
  EXPECT_EQ(metrics.titleFont(full), metrics.smallFont);
}

}  // namespace
