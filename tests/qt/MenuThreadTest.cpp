#include "qt/menu/MenuContents.h"
#include "tests/qt/MenuScene.h"
#include "tests/support/PlainImage.h"
#include "tests/support/Sanitized.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

namespace {

using kvl::qt::MenuView;
using kvltest::eventually;
using kvltest::itemWithSubmenu;
using kvltest::kSanitized;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;

constexpr int kTurns = kSanitized ? 100 : 1000;
constexpr int kViews = kSanitized ? 20 : 100;

// Does something again and again on a thread of its own.
class Repeating {
 public:
  explicit Repeating(std::function<void(int)> work)
      : thread_([this, work = std::move(work)] {
          for (int turn = 0; !stopped_; ++turn) {
            work(turn);
            turns_ = turn + 1;
          }
        }) {}
  ~Repeating() { stop(); }
  Repeating(const Repeating&) = delete;
  Repeating& operator=(const Repeating&) = delete;

  void stop() {
    stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }
  [[nodiscard]] int turns() const { return turns_; }

 private:
  std::atomic<bool> stopped_{false};
  std::atomic<int> turns_{0};
  std::thread thread_;
};

void changeEverything(MenuItem& item, int turn) {
  item.setTitle("title " + std::to_string(turn));
  item.setSubtitle(turn % 2 ? std::optional<std::string>("second line") : std::nullopt);
  item.setBadge(kvl::MenuItemBadge::updatesWithCount(turn));
  item.setState(static_cast<MenuItem::State>(turn % 3 - 1));
  item.setEnabled(turn % 2 == 0);
  item.setKeyEquivalent(turn % 5 ? "k" : "");
  item.setToolTip("tip " + std::to_string(turn));
  item.setImage(turn % 4 ? std::make_shared<kvltest::PlainImage>() : nullptr);
  item.setSubmenu(turn % 7 == 0 ? menuWithTitles({"below"}) : nullptr);
}

void changeItems(const std::shared_ptr<Menu>& menu, int turn) {
  for (const auto& item : menu->items()) changeEverything(*item, turn);
  if (turn % 10 == 0) menu->removeAllItems();
  menu->addItem(MenuItem::itemWithTitle("more"));
}

// Whether a view shows the items of its menu, each as it is now.
bool isUpToDate(const MenuView& view) {
  const auto* contents = kvl::qt::MenuContents::of(&view);
  return std::ranges::equal(
      view.actions(), view.menu()->items(), [&](const QAction* action, const MenuItemRef& item) {
        const auto* entry = contents->entry(action);
        return entry && view.itemOf(action) == item && *entry == kvl::qt::entryOf(*item);
      });
}

class MenuThreadTest : public testing::Test {
 protected:
  kvltest::QtApplication application;
  std::shared_ptr<Menu> menu = menuWithTitles({"a", "b", "c"});
};

TEST_F(MenuThreadTest, TheLastChangeShowsWhicheverThreadMadeIt) {
  const auto item = menu->items()[0];
  const auto last = QString::number(kTurns);
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  std::thread changing([&] {
    for (int i = 0; i <= kTurns; ++i) item->setTitle(std::to_string(i));
  });
  EXPECT_TRUE(eventually([&] { return view.actionOf(*item)->text() == last; }));
  changing.join();
}

TEST_F(MenuThreadTest, WidgetsAreTouchedOnTheirOwnThreadOnly) {
  MenuView view(menu);
  const auto* const gui = QThread::currentThread();
  bool elsewhere = false;
  QObject::connect(
      view.actions()[0], &QAction::changed, view.actions()[0],
      [&] { elsewhere |= QThread::currentThread() != gui; }, Qt::DirectConnection);
  std::thread([&] { menu->items()[0]->setTitle("otherwise"); }).join();
  EXPECT_EQ(view.actions()[0]->text(), QStringLiteral("a"));
  EXPECT_TRUE(eventually([&] { return view.actions()[0]->text() == QStringLiteral("otherwise"); }));
  EXPECT_FALSE(elsewhere);
}

TEST_F(MenuThreadTest, AModelMayChangeAtFullSpeedWhileItIsShown) {
  MenuView view(menu);
  ASSERT_TRUE(open(view));
  Repeating first([&](int turn) { changeItems(menu, turn); });
  Repeating second([&](int turn) { changeItems(menu, turn); });
  EXPECT_TRUE(eventually([&] { return first.turns() > kTurns && second.turns() > kTurns; }));
  first.stop();
  second.stop();
  EXPECT_TRUE(eventually([&] { return isUpToDate(view); }));
}

TEST_F(MenuThreadTest, ViewsComeAndGoWhileTheModelChanges) {
  Repeating changing([&](int turn) { changeItems(menu, turn); });
  const MenuView stays(menu);
  int views = 0;
  EXPECT_TRUE(eventually([&] {
    MenuView view(menu);
    if (views++ % 10 == 0) view.popup(QPoint(100, 100));
    QCoreApplication::processEvents();
    return views > kViews && changing.turns() > kTurns;
  }));
  changing.stop();
  EXPECT_TRUE(isUpToDate(MenuView(menu)));
  EXPECT_TRUE(eventually([&] { return isUpToDate(stays); }));
}

TEST_F(MenuThreadTest, SubmenusAreChangedWhileTheyAreOpen) {
  const auto below = menuWithTitles({"x", "y"});
  const auto more = itemWithSubmenu("More", below);
  MenuView view(menuOf({more}));
  ASSERT_TRUE(open(view));
  view.setActiveAction(view.actions()[0]);
  ASSERT_TRUE(eventually([&] { return view.actions()[0]->menu()->isVisible(); }));
  Repeating changing([&](int turn) {
    changeItems(below, turn);
    if (turn % 20 == 0) more->setSubmenu(turn % 40 ? below : nullptr);
  });
  EXPECT_TRUE(eventually([&] { return changing.turns() > kTurns; }));
  changing.stop();
  more->setSubmenu(below);
  ASSERT_TRUE(eventually([&] { return isUpToDate(view); }));
  const auto* subview = qobject_cast<const MenuView*>(view.actions()[0]->menu());
  ASSERT_NE(subview, nullptr);
  EXPECT_EQ(subview->menu(), below);
  EXPECT_TRUE(eventually([&] { return isUpToDate(*subview); }));
}

TEST(MenuThreadApplicationTest, TheApplicationEndsWhileTheModelChanges) {
  const auto menu = menuWithTitles({"a", "b"});
  Repeating changing([&](int turn) { changeItems(menu, turn); });
  for (int i = 0; i < 3; ++i) {
    kvltest::QtApplication application;
    auto view = std::make_unique<MenuView>(menu);
    ASSERT_TRUE(open(*view));
    const int turns = changing.turns();
    ASSERT_TRUE(eventually([&] { return changing.turns() > turns + 20; }));
    application.end();
    view = nullptr;
  }
}

}  // namespace
