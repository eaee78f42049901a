#include "qt/menu/MenuContents.h"
#include "qt/menu/MenuLayout.h"
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <tuple>

namespace {

using kvl::qt::MenuContents;
using kvl::qt::MenuMetrics;
using kvl::qt::MenuView;
using kvltest::itemWithKey;
using kvltest::open;

// The scale, and whether right to left.
class MenuWidthTest : public testing::TestWithParam<std::tuple<const char*, bool>> {
 protected:
  const kvltest::QtApplication application{
      {.scale = std::get<0>(GetParam()), .rightToLeft = std::get<1>(GetParam())}};
};

QString shownIn(const QRect& rect, const QString& text, const QFontMetrics& metrics, int margin) {
  return metrics.elidedText(text, Qt::ElideRight, rect.width() - 2 * margin);
}

// One item whose key is the widest of its menu, and whose badge is the only one.
void expectShownInFull(MenuView& view, const QFont& font) {
  view.setFont(font);
  ASSERT_TRUE(open(view));
  const MenuMetrics metrics(view.font());
  const auto* contents = MenuContents::of(&view);
  auto* const action = view.actions().at(0);
  const auto& entry = *contents->entry(action);
  const auto row = layoutOf(entry, contents->columns(), metrics, view.actionGeometry(action),
                            view.layoutDirection());
  EXPECT_EQ(shownIn(row.shortcut, entry.shortcut, metrics.text, 0), entry.shortcut);
  EXPECT_EQ(shownIn(row.badge, entry.badge, metrics.small, metrics.badgeMargin), entry.badge);
  EXPECT_GE(row.title.width(), metrics.text.horizontalAdvance(entry.title));
  view.hide();
}

TEST_P(MenuWidthTest, KeysAndBadgesAreShownInFull) {
  for (const char* key : {"i", "W", "\xEF\x9C\xAD"}) {
    const auto item = itemWithKey("Install", key);
    item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
    MenuView view(kvltest::menuOf({item}));
    for (const double points : {7.3, 9.1, 10.0, 11.7, 13.9}) {
      QFont font = view.font();
      font.setPointSizeF(points);
      SCOPED_TRACE(points);
      expectShownInFull(view, font);
    }
  }
}

std::string nameOfLook(const testing::TestParamInfo<MenuWidthTest::ParamType>& look) {
  std::string name = std::string("Scale") + std::get<0>(look.param);
  std::ranges::replace(name, '.', '_');
  return name + (std::get<1>(look.param) ? "RightToLeft" : "");
}

INSTANTIATE_TEST_SUITE_P(Looks, MenuWidthTest,
                         testing::Combine(testing::Values("1", "1.5", "2"), testing::Bool()),
                         nameOfLook);

}  // namespace
