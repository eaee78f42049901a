#include "qt/menu/MenuEntry.h"
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QMainWindow>
#include <QMenuBar>

namespace {

using kvl::qt::MenuView;
using kvl::qt::shortcutOf;
using kvltest::eventually;
using kvltest::itemWithKey;
using kvltest::itemWithSubmenu;
using kvltest::MenuItem;
using kvltest::MenuItemRef;
using kvltest::menuOf;
using kvltest::Recorder;
using kvltest::runPostedEvents;
using testing::ElementsAre;
using testing::IsEmpty;

struct KeyCase {
  const char* keyEquivalent;
  const char* shortcut;
};

TEST(MenuKeyTest, ACharacterStandsForItsKeyWithCtrl) {
  for (const auto& [key, shortcut] :
       std::initializer_list<KeyCase>{{"o", "Ctrl+O"},
                                      {"O", "Ctrl+Shift+O"},
                                      {"1", "Ctrl+1"},
                                      {",", "Ctrl+,"},
                                      {"+", "Ctrl++"},
                                      {"\xC3\xA4", "Ctrl+\xC3\x84"},
                                      {"\xC3\x84", "Ctrl+Shift+\xC3\x84"},
                                      {"\xD0\xB6", "Ctrl+\xD0\x96"},
                                      {" ", "Ctrl+Space"},
                                      {"\r", "Ctrl+Return"},
                                      {"\n", "Ctrl+Return"},
                                      {"\x03", "Ctrl+Enter"},
                                      {"\t", "Ctrl+Tab"},
                                      {"\x19", "Ctrl+Shift+Backtab"},
                                      {"\x1b", "Ctrl+Esc"},
                                      {"\x08", "Ctrl+Backspace"},
                                      {"\x7f", "Ctrl+Del"},
                                      {"\xEF\x9C\x80", "Ctrl+Up"},
                                      {"\xEF\x9C\x81", "Ctrl+Down"},
                                      {"\xEF\x9C\x82", "Ctrl+Left"},
                                      {"\xEF\x9C\x83", "Ctrl+Right"},
                                      {"\xEF\x9C\x84", "Ctrl+F1"},
                                      {"\xEF\x9C\x8F", "Ctrl+F12"},
                                      {"\xEF\x9C\xA6", "Ctrl+F35"},
                                      {"\xEF\x9C\xA8", "Ctrl+Del"},
                                      {"\xEF\x9C\xA9", "Ctrl+Home"},
                                      {"\xEF\x9C\xAD", "Ctrl+PgDown"}})
    EXPECT_EQ(shortcutOf(key).toString(QKeySequence::PortableText), QString::fromUtf8(shortcut))
        << key;
}

TEST(MenuKeyTest, ALetterWhoseUpperCaseIsOnNoKeyStandsForItself) {
  EXPECT_EQ(shortcutOf("\xC3\xBF"), QKeySequence(int{Qt::CTRL} | int{Qt::Key_ydiaeresis}));
  EXPECT_EQ(shortcutOf("\xC2\xB5"), QKeySequence(int{Qt::CTRL} | int{Qt::Key_mu}));
}

TEST(MenuKeyTest, WhatIsNoCharacterOfAKeyboardStandsForNoKey) {
  using namespace std::literals;
  for (const auto key :
       {""sv, "ab"sv, "Ctrl+O"sv, "\0"sv, "\x01"sv, "\xFF"sv, "\xC3"sv, "\xC2\xA0"sv,
        "\xEF\xBF\xBD"sv, "\xEF\xBF\xBF"sv, "\xEE\x80\x80"sv, "\xEF\xA0\x80"sv, "\xEF\x9C\xB2"sv})
    EXPECT_TRUE(shortcutOf(key).isEmpty()) << key;
  EXPECT_TRUE(shortcutOf(std::string(1 << 20, 'a')).isEmpty());
}

class MenuShortcutTest : public testing::Test {
 protected:
  // Shows the menus in the bar of a window that has the keyboard.
  [[nodiscard]] bool show(std::initializer_list<QMenu*> menus) {
    for (auto* menu : menus) window.menuBar()->addMenu(menu);
    window.move(100, 100);
    window.show();
    window.activateWindow();
    return eventually([&] { return window.isActiveWindow(); });
  }
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::ControlModifier) {
    QTest::keyClick(&window, key, modifiers);
  }

  kvltest::QtApplication application;
  QMainWindow window;
  Recorder recorder;
};

TEST_F(MenuShortcutTest, AKeyWorksBeforeTheMenuHasBeenOpened) {
  const auto item = recorder.of(itemWithKey("Open", "o"));
  MenuView view(menuOf({item}), QStringLiteral("File"));
  ASSERT_TRUE(show({&view}));
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
}

TEST_F(MenuShortcutTest, AKeyWorksInSubmenusThatHaveNotBeenOpened) {
  const auto item = recorder.of(itemWithKey("Open", "O"));
  std::vector<MenuItemRef> chosen;
  MenuView view(menuOf({itemWithSubmenu("Top", menuOf({itemWithSubmenu("Mid", menuOf({item}))}))}),
                QStringLiteral("File"));
  QObject::connect(&view, &MenuView::itemChosen,
                   [&](const MenuItemRef& one) { chosen.push_back(one); });
  ASSERT_TRUE(show({&view}));
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, IsEmpty());
  press(Qt::Key_O, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  EXPECT_THAT(chosen, ElementsAre(item));
}

TEST_F(MenuShortcutTest, AKeyFollowsItsItem) {
  const auto item = recorder.of(itemWithKey("Open", "o"));
  const auto menu = menuOf({item});
  MenuView view(menu, QStringLiteral("File"));
  ASSERT_TRUE(show({&view}));
  item->setKeyEquivalent("p");
  runPostedEvents();
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, IsEmpty());
  press(Qt::Key_P);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  menu->removeAllItems();
  runPostedEvents();
  press(Qt::Key_P);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
}

TEST_F(MenuShortcutTest, OfItemsWithTheSameKeyTheFirstOneWins) {
  const auto below = recorder.of(itemWithKey("Below", "o"));
  const auto item = recorder.of(itemWithKey("Open", "o"));
  MenuView view(menuOf({itemWithSubmenu("More", menuOf({below})), item}), QStringLiteral("File"));
  ASSERT_TRUE(show({&view}));
  press(Qt::Key_O);
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(below, below));
}

TEST_F(MenuShortcutTest, AnItemThatIsNotEnabledLeavesItsKeyToTheNext) {
  const auto first = recorder.of(itemWithKey("First", "o"));
  const auto second = recorder.of(itemWithKey("Second", "o"));
  const auto third = recorder.of(itemWithKey("Third", "o"));
  MenuView view(menuOf({first, second, third}), QStringLiteral("File"));
  ASSERT_TRUE(show({&view}));
  first->setEnabled(false);
  runPostedEvents();
  press(Qt::Key_O);
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(second, second));
}

TEST_F(MenuShortcutTest, TheFirstMenuOfABarWins) {
  const auto first = recorder.of(itemWithKey("First", "o"));
  const auto second = recorder.of(itemWithKey("Second", "o"));
  MenuView left(menuOf({first}), QStringLiteral("File"));
  MenuView right(menuOf({second}), QStringLiteral("Edit"));
  ASSERT_TRUE(show({&left, &right}));
  press(Qt::Key_O);
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(first, first));
}

TEST_F(MenuShortcutTest, AViewOutlivesTheOneThatItWasMadeBelow) {
  const auto first = recorder.of(itemWithKey("First", "o"));
  const auto second = recorder.of(itemWithKey("Second", "o"));
  auto above = std::make_unique<MenuView>(nullptr);
  MenuView view(menuOf({first, second}), QStringLiteral("File"), above.get());
  view.setParent(nullptr, view.windowFlags());
  above = nullptr;
  ASSERT_TRUE(show({&view}));
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(first));
}

TEST_F(MenuShortcutTest, AViewThatIsNotInTheMenuAboveHasItsKeys) {
  const auto first = recorder.of(itemWithKey("First", "o"));
  const auto second = recorder.of(itemWithKey("Second", "o"));
  MenuView above(nullptr);
  auto* const view = new MenuView(menuOf({first, second}), QStringLiteral("File"), &above);
  ASSERT_TRUE(show({view}));
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(first));
}

TEST_F(MenuShortcutTest, ASubmenuThatComesLaterHasItsKeys) {
  const auto item = recorder.of(itemWithKey("Open", "o"));
  const auto more = MenuItem::itemWithTitle("More");
  MenuView view(menuOf({more}), QStringLiteral("File"));
  ASSERT_TRUE(show({&view}));
  more->setSubmenu(menuOf({item}));
  runPostedEvents();
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
  more->setEnabled(false);
  runPostedEvents();
  press(Qt::Key_O);
  EXPECT_THAT(recorder.sent, ElementsAre(item));
}

}  // namespace
