// Letters that are typed while a menu is open.
#include "tests/qt/MenuScene.h"

#include <gmock/gmock.h>

#include <QAction>

namespace {

using kvl::qt::MenuView;
using kvltest::itemWithSubmenu;
using kvltest::Menu;
using kvltest::MenuItem;
using kvltest::menuOf;
using kvltest::menuWithTitles;
using kvltest::open;
using testing::ElementsAre;
using testing::IsEmpty;

class MenuLetterTest : public testing::Test {
 protected:
  // The title of the row that is highlighted after each of the letters.
  [[nodiscard]] std::vector<std::string> after(const char* letters,
                                               Qt::KeyboardModifiers modifiers = {}) {
    std::vector<std::string> titles;
    for (const char letter : std::string_view(letters)) {
      QTest::keyClick(&view, letter, modifiers);
      titles.push_back(highlighted());
    }
    return titles;
  }
  // What a key says that types `text`, for those that are on no keyboard of the test's.
  [[nodiscard]] std::string afterText(const char* text) {
    QKeyEvent key(QEvent::KeyPress, Qt::Key_unknown, {}, QString::fromUtf8(text));
    QCoreApplication::sendEvent(&view, &key);
    return highlighted();
  }
  void show(const std::shared_ptr<Menu>& menu) {
    view.setMenu(menu);
    ASSERT_TRUE(open(view));
  }

  const kvltest::QtApplication application;
  kvltest::Recorder recorder;
  MenuView view{nullptr};

 private:
  [[nodiscard]] std::string highlighted() const {
    const auto* action = view.activeAction();
    return action ? action->text().toStdString() : "";
  }
};

TEST_F(MenuLetterTest, LeadToTheNextItemThatBeginsWithThem) {
  show(menuWithTitles({"Open", "Close", "Copy", "Quit"}));
  EXPECT_THAT(after("cqocccC"),
              ElementsAre("Close", "Quit", "Open", "Close", "Copy", "Close", "Copy"));
}

TEST_F(MenuLetterTest, ChooseNothing) {
  show(menuOf({recorder.of(MenuItem::itemWithTitle("Open"))}));
  EXPECT_THAT(after("o"), ElementsAre("Open"));
  EXPECT_THAT(recorder.sent, IsEmpty());
  EXPECT_TRUE(view.isVisible());
  QTest::keyClick(&view, Qt::Key_Return);
  EXPECT_EQ(recorder.sent.size(), 1U);
}

TEST_F(MenuLetterTest, ThatNoItemBeginsWithLeaveEverythingAsItIs) {
  show(menuWithTitles({"Open", "Close"}));
  EXPECT_THAT(after("cxl "), ElementsAre("Close", "Close", "Close", "Close"));
}

TEST_F(MenuLetterTest, DoNotLeadToWhatArrowKeysPass) {
  const auto disabled = MenuItem::itemWithTitle("Print");
  disabled->setEnabled(false);
  show(menuOf(
      {MenuItem::sectionHeaderWithTitle("Pages"), disabled, MenuItem::itemWithTitle("Paste")}));
  EXPECT_THAT(after("pp"), ElementsAre("Paste", "Paste"));
}

TEST_F(MenuLetterTest, HighlightASubmenuWithoutOpeningIt) {
  const auto below = menuWithTitles({"Cut"});
  show(menuOf({itemWithSubmenu("Channels", below), MenuItem::itemWithTitle("Close")}));
  EXPECT_THAT(after("ccc"), ElementsAre("Channels", "Close", "Channels"));
  auto* const subview = view.actions().at(0)->menu();
  EXPECT_FALSE(subview->isVisible());
  EXPECT_TRUE(subview->isEnabled());
  QTest::keyClick(&view, Qt::Key_Right);
  EXPECT_TRUE(kvltest::eventually([&] { return subview->isVisible(); }));
}

TEST_F(MenuLetterTest, ScrollToTheItem) {
  auto menu = menuWithTitles(std::vector<std::string>(1000, "Item"));
  menu->addItem(MenuItem::itemWithTitle("Last"));
  show(menu);
  EXPECT_THAT(after("l"), ElementsAre("Last"));
  EXPECT_TRUE(view.rect().intersects(view.actionGeometry(view.activeAction())));
}

TEST_F(MenuLetterTest, AreFoundBehindSignsAndUnderAccents) {
  show(menuWithTitles({"Open", "“Édition”", "Übersicht", "(3) notes", "Ответы", "עזרה"}));
  EXPECT_THAT(after("e3u"), ElementsAre("“Édition”", "(3) notes", "Übersicht"));
  EXPECT_EQ(afterText("é"), "“Édition”");
  EXPECT_EQ(afterText("О"), "Ответы");
  EXPECT_EQ(afterText("ע"), "עזרה");
}

TEST_F(MenuLetterTest, WithCtrlOrAltAreNotForTheMenu) {
  show(menuWithTitles({"Open", "Close"}));
  for (const auto modifier : {Qt::ControlModifier, Qt::AltModifier, Qt::MetaModifier})
    EXPECT_THAT(after("c", modifier), ElementsAre(""));
}

TEST_F(MenuLetterTest, ThatAreMnemonicsOfTheHostAreItsOwn) {
  int chosen = 0;
  view.setMenu(menuWithTitles({"Quote"}));
  QObject::connect(view.addAction(QStringLiteral("&Quit")), &QAction::triggered,
                   [&chosen] { ++chosen; });
  view.addAction(QStringLiteral("About"));
  ASSERT_TRUE(open(view));
  EXPECT_THAT(after("a"), ElementsAre("About"));
  EXPECT_THAT(after("q"), testing::SizeIs(1));
  EXPECT_EQ(chosen, 1);
}

}  // namespace
