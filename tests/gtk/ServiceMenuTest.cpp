// A menu as GLib's menu model. None of this needs a display.
#include "examples/gtk/ServiceMenu.h"
#include "tests/support/MainLoop.h"

#include <local/KVLEncodingMenus.h>
#include <local/platform/DispatchQueue.h>

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kvltest;
using gtkhost::Owned;
using gtkhost::ServiceMenu;
using kvl::Menu;
using kvl::MenuItem;
using testing::ElementsAre;

std::string attribute(GMenuModel* model, int row, const char* name) {
  char* text = nullptr;
  if (g_menu_model_get_item_attribute(model, row, name, "s", &text) == FALSE) return {};
  const std::string result = text;
  g_free(text);
  return result;
}

Owned<GMenuModel> link(GMenuModel* model, int row, const char* name) {
  return Owned<GMenuModel>(g_menu_model_get_item_link(model, row, name));
}

// Labels in order: "[title]" begins a section, and a sub-menu's are in braces.
std::string drawn(GMenuModel* model) {
  std::string text;
  for (int i = 0; i < g_menu_model_get_n_items(model); ++i) {
    if (!text.empty()) text += ' ';
    const std::string label = attribute(model, i, G_MENU_ATTRIBUTE_LABEL);
    const auto section = link(model, i, G_MENU_LINK_SECTION);
    const auto submenu = link(model, i, G_MENU_LINK_SUBMENU);
    text += section ? "[" + label + "] " + drawn(section.get()) : label;
    if (submenu) text += "{" + drawn(submenu.get()) + "}";
  }
  return text;
}

struct Changes {
  explicit Changes(GMenuModel* model) : model_(model) {
    handler_ = g_signal_connect(
        model, "items-changed",
        G_CALLBACK(+[](GMenuModel* /*model*/, int at, int gone, int come, gpointer self) {
          static_cast<Changes*>(self)->seen.push_back(
              std::to_string(at) + ":-" + std::to_string(gone) + "+" + std::to_string(come));
        }),
        this);
  }
  ~Changes() { g_signal_handler_disconnect(model_, handler_); }
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  std::vector<std::string> seen;

 private:
  GMenuModel* model_;
  gulong handler_ = 0;
};

class ServiceMenuTest : public testing::Test {
 protected:
  ~ServiceMenuTest() override { runPendingMainBlocks(); }

  std::shared_ptr<MenuItem> add(const std::string& title) {
    auto item = MenuItem::itemWithTitle(title);
    item->setAction([this](const auto& activated) {
      chosenOnMainThread = kvl::isMainThread();
      chosen.push_back(activated->title());
    });
    menu->addItem(item);
    return item;
  }
  ServiceMenu& shown() {
    if (!view) view = std::make_unique<ServiceMenu>(menu, "service", [this] { ++updates; });
    return *view;
  }
  Owned<GMenuModel> section(int number) {
    return link(shown().model(), number, G_MENU_LINK_SECTION);
  }
  // The action of the row of that section, without its group.
  std::string action(int number, int row) {
    const auto name = attribute(section(number).get(), row, G_MENU_ATTRIBUTE_ACTION);
    return name.substr(name.find('.') + 1);
  }
  bool isEnabled(const std::string& action) {
    return g_action_group_get_action_enabled(shown().actions(), action.c_str()) != FALSE;
  }
  // "on", "off", or "none" for an action without a mark.
  std::string mark(const std::string& action) {
    GVariant* state = g_action_group_get_action_state(shown().actions(), action.c_str());
    if (state == nullptr) return "none";
    const bool isOn = g_variant_get_boolean(state) != FALSE;
    g_variant_unref(state);
    return isOn ? "on" : "off";
  }
  void choose(const std::string& action) {
    g_action_group_activate_action(shown().actions(), action.c_str(), nullptr);
  }
  std::size_t actionCount() {
    char** names = g_action_group_list_actions(shown().actions());
    const std::size_t count = g_strv_length(names);
    g_strfreev(names);
    return count;
  }

  const std::shared_ptr<Menu> menu = std::make_shared<Menu>();
  std::unique_ptr<ServiceMenu> view;
  std::vector<std::string> chosen;
  bool chosenOnMainThread = false;
  int updates = 0;
};

TEST_F(ServiceMenuTest, TitlesAndDividersBeginSections) {
  add("One");
  menu->addItem(MenuItem::sectionHeaderWithTitle("Updates"));
  add("Two");
  menu->addItem(MenuItem::separatorItem());
  add("Three");
  EXPECT_EQ(drawn(shown().model()), "[] One [Updates] Two [] Three");
}

TEST_F(ServiceMenuTest, AMenuInAnItemIsASubmenu) {
  const auto inner = std::make_shared<Menu>();
  inner->addItem(MenuItem::itemWithTitle("Inside"));
  add("Recent")->setSubmenu(inner);
  EXPECT_EQ(drawn(shown().model()), "[] Recent{[] Inside}");
}

TEST_F(ServiceMenuTest, ASubmenuOfADisabledItemIsLeftOut) {
  const auto item = add("Recent");
  item->setSubmenu(std::make_shared<Menu>());
  item->setEnabled(false);
  EXPECT_EQ(drawn(shown().model()), "[] Recent");
  EXPECT_FALSE(isEnabled(action(0, 0)));
}

TEST_F(ServiceMenuTest, SecondLineAndBadgeArePartOfTheLabel) {
  const auto item = add("Install");
  item->setSubtitle("takes a minute");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  EXPECT_EQ(drawn(shown().model()), "[] Install – takes a minute (3 updates)");
}

TEST_F(ServiceMenuTest, ALabelIsOneLineOfValidTextWithoutMnemonics) {
  add(std::string("a_b\nc\0d\xff", 8));
  EXPECT_EQ(drawn(shown().model()), "[] a__b c d\uFFFD");
}

TEST_F(ServiceMenuTest, ALongLabelIsCutBetweenCharacters) {
  std::string title = "x";
  for (int i = 0; i < 1000; ++i) title += "é";
  add(title);
  const std::string label = attribute(section(0).get(), 0, G_MENU_ATTRIBUTE_LABEL);
  EXPECT_EQ(label, title.substr(0, 499) + "…");
}

TEST_F(ServiceMenuTest, ALetterIsAKeyTogetherWithControl) {
  add("Print")->setKeyEquivalent("p");
  add("Print all")->setKeyEquivalent("P");
  add("Arrow")->setKeyEquivalent("\uF700");
  EXPECT_EQ(attribute(section(0).get(), 0, "accel"), "<Control>p");
  EXPECT_THAT(shown().accelerators(),
              ElementsAre(gtkhost::Accelerator{"service." + action(0, 0), "<Control>p"},
                          gtkhost::Accelerator{"service." + action(0, 1), "<Control><Shift>p"}));
}

TEST_F(ServiceMenuTest, ActivatingTheActionChoosesTheItemOnTheMainThread) {
  add("First");
  add("Second");
  choose(action(0, 1));
  EXPECT_THAT(chosen, ElementsAre("Second"));
  EXPECT_TRUE(chosenOnMainThread);
}

TEST_F(ServiceMenuTest, AnItemThatIsDisabledOrDoesNothingHasADisabledAction) {
  add("Enabled");
  add("Disabled")->setEnabled(false);
  menu->addItem(MenuItem::itemWithTitle("Does nothing"));
  EXPECT_TRUE(isEnabled(action(0, 0)));
  EXPECT_FALSE(isEnabled(action(0, 1)));
  EXPECT_FALSE(isEnabled(action(0, 2)));
  choose(action(0, 1));
  EXPECT_TRUE(chosen.empty());
}

TEST_F(ServiceMenuTest, AMarkIsTheStateOfTheActionAndADashIsOff) {
  add("Off");
  add("On")->setState(MenuItem::State::on);
  add("Mixed")->setState(MenuItem::State::mixed);
  EXPECT_EQ(mark(action(0, 0)), "none");
  EXPECT_EQ(mark(action(0, 1)), "on");
  EXPECT_EQ(mark(action(0, 2)), "off");
}

TEST_F(ServiceMenuTest, ChoosingAMarkedItemLeavesTheMarkToTheMenu) {
  add("On")->setState(MenuItem::State::on);
  choose(action(0, 0));
  EXPECT_THAT(chosen, ElementsAre("On"));
  EXPECT_EQ(mark(action(0, 0)), "on");
}

TEST_F(ServiceMenuTest, AChangedMarkOrFlagChangesTheActionAlone) {
  const auto item = add("Daily");
  item->setState(MenuItem::State::on);
  const auto name = action(0, 0);
  const Changes changes(section(0).get());
  item->setState(MenuItem::State::mixed);
  item->setEnabled(false);
  runMainLoopUntil([&] { return updates == 1; });
  EXPECT_EQ(mark(name), "off");
  EXPECT_FALSE(isEnabled(name));
  item->setState(MenuItem::State::off);
  runMainLoopUntil([&] { return updates == 2; });
  EXPECT_EQ(mark(name), "none");
  EXPECT_TRUE(changes.seen.empty());
}

TEST_F(ServiceMenuTest, AChangedTitleReplacesItsRowOnly) {
  add("One");
  const auto item = add("Two");
  add("Three");
  const auto rows = section(0);
  const Changes changes(rows.get());
  item->setTitle("Second");
  runMainLoopUntil([&] { return updates == 1; });
  EXPECT_EQ(drawn(shown().model()), "[] One Second Three");
  EXPECT_THAT(changes.seen, ElementsAre("1:-1+0", "1:-0+1"));
}

TEST_F(ServiceMenuTest, ANewItemIsInsertedAndTheOthersStay) {
  add("One");
  const auto name = action(0, 0);
  const auto rows = section(0);
  const Changes changes(rows.get());
  add("Two");
  runMainLoopUntil([&] { return updates == 1; });
  EXPECT_EQ(drawn(rows.get()), "One Two");
  EXPECT_THAT(changes.seen, ElementsAre("1:-0+1"));
  EXPECT_EQ(action(0, 0), name);
}

TEST_F(ServiceMenuTest, SectionsComeGoAndChangeTheirTitles) {
  add("One");
  const auto header = MenuItem::sectionHeaderWithTitle("Before");
  menu->addItem(header);
  add("Two");
  EXPECT_EQ(drawn(shown().model()), "[] One [Before] Two");
  header->setTitle("After");
  runMainLoopUntil([&] { return updates == 1; });
  EXPECT_EQ(drawn(shown().model()), "[] One [After] Two");
  menu->removeAllItems();
  add("Only");
  runMainLoopUntil([&] { return updates == 2; });
  EXPECT_EQ(drawn(shown().model()), "[] Only");
  EXPECT_EQ(actionCount(), 1U);
}

TEST_F(ServiceMenuTest, AChangeInASubmenuIsFollowed) {
  const auto inner = std::make_shared<Menu>();
  const auto item = add("Recent");
  item->setSubmenu(inner);
  EXPECT_EQ(drawn(shown().model()), "[] Recent{}");
  inner->addItem(MenuItem::itemWithTitle("Inside"));
  runMainLoopUntil([&] { return updates == 1; });
  EXPECT_EQ(drawn(shown().model()), "[] Recent{[] Inside}");
  item->setSubmenu(nullptr);
  runMainLoopUntil([&] { return updates == 2; });
  EXPECT_EQ(drawn(shown().model()), "[] Recent");
}

TEST_F(ServiceMenuTest, ManyChangesOnAnotherThreadAreOneUpdateOnTheMainThread) {
  const auto item = add("One");
  const auto rows = section(0);
  std::thread([&] {
    for (int i = 0; i < 100; ++i) item->setTitle(std::to_string(i));
  }).join();
  EXPECT_EQ(drawn(rows.get()), "One");
  runMainLoopUntil([&] { return updates == 1; });
  runPendingMainBlocks();
  EXPECT_EQ(drawn(rows.get()), "99");
  EXPECT_EQ(updates, 1);
}

TEST_F(ServiceMenuTest, AModelThatOutlivesItsViewIsEmptyAndItsActionsDoNothing) {
  add("One");
  const Owned<GMenuModel> model(G_MENU_MODEL(g_object_ref(shown().model())));
  const Owned<GActionGroup> actions(G_ACTION_GROUP(g_object_ref(shown().actions())));
  const Owned<GAction> one(G_ACTION(
      g_object_ref(g_action_map_lookup_action(G_ACTION_MAP(actions.get()), action(0, 0).c_str()))));
  view.reset();
  EXPECT_EQ(drawn(model.get()), "");
  EXPECT_EQ(g_action_get_enabled(one.get()), FALSE);
  g_action_activate(one.get(), nullptr);
  EXPECT_TRUE(chosen.empty());
  add("Two");  // nobody follows the menu any more
  runPendingMainBlocks();
  EXPECT_EQ(updates, 0);
}

TEST_F(ServiceMenuTest, AChangeThatIsStillToBeShownIsDroppedWithTheView) {
  const auto item = add("One");
  shown();
  item->setTitle("Two");
  view.reset();
  runPendingMainBlocks();
  EXPECT_EQ(updates, 0);
}

TEST_F(ServiceMenuTest, AnActionMayDestroyTheView) {
  const auto item = MenuItem::itemWithTitle("Close");
  item->setAction([this](const auto& closed) {
    view.reset();
    chosen.push_back(closed->title());
  });
  menu->addItem(item);
  choose(action(0, 0));
  EXPECT_THAT(chosen, ElementsAre("Close"));
}

TEST_F(ServiceMenuTest, TheViewKeepsAMenuThatNobodyElseHolds) {
  auto other = std::make_shared<Menu>();
  other->addItem(MenuItem::itemWithTitle("Kept"));
  const ServiceMenu kept(std::move(other));
  EXPECT_EQ(drawn(kept.model()), "[] Kept");
}

TEST_F(ServiceMenuTest, ItemsThatChangeOnOtherThreadsWhileTheViewGoesAreNoTrouble) {
  const auto item = add("One");
  for (int i = 0; i < 50; ++i) {
    shown();
    std::thread changer([&] {
      for (int k = 0; k < 20; ++k) item->setTitle(std::to_string(k));
    });
    runPendingMainBlocks();
    view.reset();
    changer.join();
  }
  runPendingMainBlocks();
  EXPECT_EQ(drawn(shown().model()), "[] 19");
}

TEST_F(ServiceMenuTest, MenusAreShownSixteenLevelsDeep) {
  auto level = menu;
  for (int i = 0; i < 20; ++i) {
    const auto inner = std::make_shared<Menu>();
    const auto item = MenuItem::itemWithTitle("in");
    item->setSubmenu(inner);
    level->addItem(item);
    level = inner;
  }
  const std::string text = drawn(shown().model());
  EXPECT_EQ(std::ranges::count(text, '{'), 15);
}

TEST_F(ServiceMenuTest, ADescriptionFromADocumentIsShown) {
  const kvl::Array descriptions{
      kvl::Dictionary{{"type", "title"}, {"text", "Documents"}},
      kvl::Dictionary{{"type", "item"}, {"text", "New"}, {"form", kvl::Dictionary{{"id", "new"}}}},
      kvl::Dictionary{{"type", "divider"}}, kvl::Dictionary{{"type", "item"}, {"text", "Print"}}};
  KVLEncoding::addMenuItems(descriptions, *menu, nullptr, [](const auto&) {}, {});
  EXPECT_EQ(drawn(shown().model()), "[Documents] New [] Print");
  EXPECT_TRUE(isEnabled(action(0, 0)));
  EXPECT_FALSE(isEnabled(action(1, 0)));
}

}  // namespace
