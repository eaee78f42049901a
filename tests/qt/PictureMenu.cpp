#include "tests/qt/PictureMenu.h"

#include "qt/menu/MenuContents.h"
#include "tests/qt/Patience.h"

#include <local/KVLEncodingMenus.h>

#include <QAction>
#include <QPainter>
#include <QPixmap>
#include <QTest>
#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvltest {
namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::qt::MenuView;

constexpr int kMargin = 12;

constexpr std::string_view kGear =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16">
<path fill-rule="evenodd" d="M6.9 0h2.2l.4 2 1.4.6L12.600 1.500 14.500 3.400 13.400 5.100 14 6.500l2 .4v2.200l-2
.4-.6 1.400 1.100 1.700-1.900 1.900-1.700-1.100-1.400.6-.4 2H6.900l-.4-2-1.400-.6-1.700 1.100-1.900-1.900
1.100-1.700L2 9.500l-2-.4V6.900l2-.4.6-1.400L1.500 3.400 3.400 1.500l1.700 1.100L6.500 2zM8 5.200a2.800 2.800 0 1
0 0 5.600 2.800 2.800 0 0 0 0-5.600z"/></svg>)";

constexpr std::string_view kParcel =
    R"(<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16">
<rect x="1" y="4" width="14" height="11" rx="1.500" fill="#c98a3c"/>
<path d="M1 5.500 2.500 1h11L15 5.500z" fill="#e2b26a"/><rect x="6.500" y="1" width="3" height="7" fill="#8f5a1e"/>
</svg>)";

// Has its images at once.
class Drawings final : public KVLEncodingImageSource {
 public:
  void imageWithRelativePath(const KVLEncoding::RelativePath& path, kvl::Size size,
                             Completion completionHandler) override {
    const bool isTemplate = path.text() == "gear";
    const std::string_view drawing = isTemplate ? kGear : kParcel;
    const auto image = kvl::Image::imageWithData(kvl::Data::fromText(drawing));
    if (!image) throw std::runtime_error("the drawing is none");
    image->setSize(size);
    image->setTemplate(isTemplate);
    completionHandler(image);
  }
};

struct Words {
  const char* updates;
  const char* install;
  const char* found;
  const char* notes;
  const char* look;
  const char* never;
  const char* packages;
  const char* all;
  const char* some;
  const char* settings;
  const char* channels;
  const char* stable;
  const char* nightly;
  const char* nightlyLine;
  const char* old;
};

constexpr Words kEnglish{"Updates",
                         "Install now",
                         "Found on May 1, 2026",
                         "Release notes",
                         "Look for updates",
                         "Never looked",
                         "Packages",
                         "All languages",
                         "Optional parts",
                         "Settings…",
                         "Channels",
                         "Stable",
                         "Nightly",
                         "Built every night, tested by nobody",
                         "Previous release"};

constexpr Words kHebrew{
    "עדכונים", "התקן עכשיו",    "נמצא ב־1 במאי 2026", "הערות גרסה", "חפש עדכונים", "מעולם לא נבדק",
    "חבילות",  "כל השפות",      "חלקים נוספים",       "הגדרות…",    "ערוצים",      "יציב",
    "לילי",    "נבנה בכל לילה", "הגרסה הקודמת"};

Dictionary item(const char* text, Dictionary more = {}) {
  more.set("type", "item");
  more.set("text", text);
  return more;
}

// An item that can be chosen.
Dictionary form(const char* text, Dictionary more = {}) {
  more.set("form", Dictionary{{"id", text}});
  return item(text, more);
}

Dictionary header(const char* text) {
  return {{"type", "title"}, {"text", text}};
}

Array channels(const Words& words) {
  return {form(words.stable, {{"state", "on"}}),
          form(words.nightly, {{"subtext", words.nightlyLine}, {"updates", 12}}),
          item(words.old, {{"subtext", words.never}})};
}

Array descriptions(const Words& words) {
  return {header(words.updates),
          form(words.install,
               {{"subtext", words.found}, {"updates", 3}, {"icon", "parcel"}, {"shortcut", "i"}}),
          form(words.notes),
          form(words.look, {{"icon", "gear"}, {"updates", 1}}),
          item(words.never, {{"icon", "gear"}}),
          Dictionary{{"type", "divider"}},
          header(words.packages),
          form(words.all, {{"state", "on"}}),
          form(words.some, {{"state", "mixed"}, {"shortcut", "O"}}),
          item(words.old, {{"state", "on"}, {"icon", "parcel"}, {"updates", 2}}),
          Dictionary{{"type", "divider"}},
          form(words.settings, {{"shortcut", ","}}),
          item(words.channels, {{"subitems", channels(words)}})};
}

bool hasIcons(const MenuView& view) {
  const auto* contents = kvl::qt::MenuContents::of(&view);
  return std::ranges::all_of(view.actions(), [&](const QAction* action) {
    const auto* entry = contents->entry(action);
    return !entry || !entry->image || !contents->icon(*entry).isNull();
  });
}

MenuView* openSubmenu(const MenuView& view) {
  for (const QAction* action : view.actions())
    if (auto* below = qobject_cast<MenuView*>(action->menu()); below && below->isVisible())
      return below;
  return nullptr;
}

std::vector<MenuView*> openViews(MenuView& view) {
  std::vector<MenuView*> views;
  for (auto* shown = &view; shown; shown = openSubmenu(*shown)) views.push_back(shown);
  return views;
}

}  // namespace

std::shared_ptr<kvl::Menu> pictureMenu(MenuLanguage language) {
  auto menu = std::make_shared<kvl::Menu>();
  const auto& words = language == MenuLanguage::hebrew ? kHebrew : kEnglish;
  KVLEncoding::addMenuItems(descriptions(words), *menu, std::make_shared<Drawings>(),
                            [](const auto&) {}, {});
  return menu;
}

void waitFor(MenuView& view) {
  if (!QTest::qWaitForWindowExposed(&view, kPatience) ||
      !QTest::qWaitFor([&] { return hasIcons(view); }, kPatience))
    throw std::runtime_error("the menu does not come");
}

void openAll(MenuView& view) {
  view.popup(QPoint(20, 20));
  waitFor(view);
  view.setActiveAction(view.actions().last());
  if (!QTest::qWaitFor([&] { return openSubmenu(view) != nullptr; }, kPatience))
    throw std::runtime_error("the sub-menu does not open");
  auto* below = qobject_cast<MenuView*>(view.actions().last()->menu());
  waitFor(*below);
  below->setActiveAction(below->actions().at(1));
}

QImage pictureOf(MenuView& view) {
  QRect whole;
  for (auto* shown : openViews(view)) whole |= shown->geometry();
  whole.adjust(-kMargin, -kMargin, kMargin, kMargin);
  QImage picture(whole.size() * view.devicePixelRatioF(), QImage::Format_RGB32);
  picture.setDevicePixelRatio(view.devicePixelRatioF());
  picture.fill(QColor(0x6d, 0x7f, 0x8f));
  QPainter painter(&picture);
  for (auto* shown : openViews(view)) {
    const QPoint place = shown->geometry().topLeft() - whole.topLeft();
    painter.drawPixmap(place, shown->grab());
  }
  return picture;
}

}  // namespace kvltest
