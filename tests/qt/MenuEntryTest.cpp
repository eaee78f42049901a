#include "qt/PlainText.h"
#include "qt/menu/MenuEntry.h"
#include "tests/qt/MenuScene.h"
#include "tests/support/PlainImage.h"

#include <gmock/gmock.h>

namespace {

using kvl::AttributedText;
using kvl::ColourRole;
using kvl::FontRole;
using kvl::qt::entryOf;
using kvl::qt::kLongestText;
using kvltest::MenuItem;

kvl::qt::MenuEntry entryWithTitle(std::string title) {
  return entryOf(*MenuItem::itemWithTitle(std::move(title)));
}

kvl::qt::MenuEntry entryWithAttributedTitle(std::vector<kvl::TextRun> runs) {
  const auto item = MenuItem::itemWithTitle("not shown");
  item->setAttributedTitle(AttributedText{std::move(runs)});
  return entryOf(*item);
}

TEST(MenuEntryTest, ATitleIsOneLineWithoutControlCharacters) {
  EXPECT_EQ(entryWithTitle("a\tb\nc\rd\x1b"
                           "e")
                .title,
            QStringLiteral("a b c d e"));
  EXPECT_EQ(entryWithTitle("a\xE2\x80\xA8"
                           "b\xE2\x80\xA9"
                           "c")
                .title,
            QStringLiteral("a b c"));
  EXPECT_EQ(entryWithTitle("&File && more").title, QStringLiteral("&File && more"));
}

TEST(MenuEntryTest, ATitleOfAnySizeIsCutBeforeItIsShown) {
  const auto title = entryWithTitle(std::string(1 << 20, 'a')).title;
  EXPECT_EQ(title.size(), kLongestText);
  EXPECT_EQ(title.back(), QChar(0x2026));
  EXPECT_EQ(entryWithTitle(std::string(kLongestText, 'a')).title.back(), QChar('a'));
}

TEST(MenuEntryTest, ACutTitleEndsWithAWholeCharacter) {
  std::string faces = "x";
  for (int i = 0; i < 1000; ++i) faces += "\xF0\x9F\x98\x80";
  for (const auto& text : {faces, faces.substr(1)}) {
    const auto title = entryWithTitle(text).title;
    EXPECT_LE(title.size(), kLongestText);
    EXPECT_TRUE(title.at(title.size() - 2).isLowSurrogate());
    EXPECT_FALSE(title.contains(QChar::ReplacementCharacter));
  }
}

TEST(MenuEntryTest, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(entryWithTitle("a\xFF"
                           "b")
                .title,
            QStringLiteral("a\uFFFDb"));
}

TEST(MenuEntryTest, AnAttributedTitleIsShownInsteadOfTheTitle) {
  const auto entry = entryWithAttributedTitle({{"Shown", FontRole::menu, ColourRole::label}});
  EXPECT_EQ(entry.title, QStringLiteral("Shown"));
  EXPECT_EQ(entry.subtitle, QString());
  EXPECT_FALSE(entry.smallTitle);
}

TEST(MenuEntryTest, TheSecondLineOfAnAttributedTitleIsASecondLine) {
  const auto entry = entryWithAttributedTitle(
      {{"First", FontRole::menu, ColourRole::label},
       {"\nsecond\nthird", FontRole::menuSmall, ColourRole::secondaryLabel}});
  EXPECT_EQ(entry.title, QStringLiteral("First"));
  EXPECT_EQ(entry.subtitle, QStringLiteral("second third"));
  EXPECT_FALSE(entry.smallTitle);
}

TEST(MenuEntryTest, AnAttributedTitleWhollyInSmallPrintIsSmall) {
  EXPECT_TRUE(
      entryWithAttributedTitle({{"Recent", FontRole::menuSmall, ColourRole::label}}).smallTitle);
  EXPECT_FALSE(entryWithAttributedTitle({}).smallTitle);
}

TEST(MenuEntryTest, ASubtitleIsTheSecondLine) {
  const auto item = MenuItem::itemWithTitle("First");
  item->setSubtitle("second\nline");
  EXPECT_EQ(entryOf(*item).subtitle, QStringLiteral("second line"));
}

// Words are in the language that the host has set, whatever the user's is.
class MenuBadgeTest : public testing::Test {
 protected:
  MenuBadgeTest() {
    qputenv("LC_ALL", "C.UTF-8");
    qunsetenv("LANGUAGE");
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
  }
  ~MenuBadgeTest() override { QLocale::setDefault(before_); }

 private:
  const QLocale before_;
};

TEST_F(MenuBadgeTest, ABadgeIsInWords) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  EXPECT_EQ(entryOf(*item).badge, QString());
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(1));
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("1 update"));
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("3 updates"));
}

TEST_F(MenuBadgeTest, TheNumberOfABadgeIsGrouped) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(1234567));
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("1,234,567 updates"));
  QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("1.234.567 Aktualisierungen"));
}

TEST_F(MenuBadgeTest, TheNumberOfABadgeIsGroupedWhereNoLanguageIsSet) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(1234567));
  QLocale::setDefault(QLocale::c());
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("1,234,567 updates"));
  QLocale::setDefault(QLocale::system());
  EXPECT_EQ(entryOf(*item).badge, QStringLiteral("1,234,567 updates"));
}

TEST_F(MenuBadgeTest, ABadgeSpeaksTheLanguageThatTheHostHasSet) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  const auto english = entryOf(*item).badge;
  QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
  const auto german = entryOf(*item).badge;
  EXPECT_NE(german, english);
  EXPECT_TRUE(german.contains(QLatin1Char('3')));
}

TEST_F(MenuBadgeTest, ABadgeIsInTheScriptThatTheHostHasSet) {
  const auto item = MenuItem::itemWithTitle("Inbox");
  item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
  for (const auto script : {QLocale::LatinScript, QLocale::CyrillicScript}) {
    QLocale::setDefault(QLocale(QLocale::Serbian, script, QLocale::Serbia));
    const auto letters = entryOf(*item).badge;
    EXPECT_EQ(letters.back().script(),
              script == QLocale::LatinScript ? QChar::Script_Latin : QChar::Script_Cyrillic)
        << letters.toStdString();
  }
}

TEST(MenuEntryTest, AToolTipKeepsItsLines) {
  const auto item = MenuItem::itemWithTitle("Open");
  item->setToolTip("first\nsecond\tthird");
  EXPECT_EQ(entryOf(*item).toolTip, QStringLiteral("first\nsecond third"));
}

TEST(MenuEntryTest, AToolTipThatLooksLikeMarkUpIsPlainText) {
  EXPECT_EQ(kvl::qt::wrapped(QStringLiteral("<b>&amp;")),
            QStringLiteral("<p style='white-space:pre-wrap'>&lt;b&gt;&amp;amp;</p>"));
  EXPECT_EQ(kvl::qt::wrapped(QString()), QString());
}

TEST(MenuEntryTest, AToolTipOfOneLongWordCanBeBroken) {
  const QString word(1000, QLatin1Char('x'));
  const auto parts = kvl::qt::wrapped(word).split(QChar(0x200b));
  for (const auto& part : parts) EXPECT_LE(part.count(QLatin1Char('x')), 60);
  EXPECT_TRUE(parts.join(QString()).contains(word));
  EXPECT_FALSE(kvl::qt::wrapped(QStringLiteral("word ").repeated(200)).contains(QChar(0x200b)));
}

TEST(MenuEntryTest, ALongWordIsNotBrokenWithinACharacter) {
  const auto faces = QStringLiteral("\U0001F600").repeated(300);
  for (const auto& part : kvl::qt::wrapped(QLatin1Char('w') + faces).split(QChar(0x200b)))
    EXPECT_FALSE(part.at(0).isLowSurrogate());
}

TEST(MenuEntryTest, AnIconIsExpectedFromTheRequestOn) {
  const auto item = MenuItem::itemWithTitle("Open");
  EXPECT_FALSE(entryOf(*item).expectsIcon);
  item->setExpectsImage(true);
  EXPECT_TRUE(entryOf(*item).expectsIcon);
  item->setExpectsImage(false);
  const auto image = std::make_shared<kvltest::PlainImage>();
  item->setImage(image);
  EXPECT_TRUE(entryOf(*item).expectsIcon);
  EXPECT_EQ(entryOf(*item).image, image);
}

TEST(MenuEntryTest, StateAndSubmenuAreTheItems) {
  const auto item = kvltest::itemWithSubmenu("More", kvltest::menuWithTitles({}));
  item->setState(MenuItem::State::mixed);
  item->setEnabled(false);
  const auto entry = entryOf(*item);
  EXPECT_EQ(entry.state, MenuItem::State::mixed);
  EXPECT_TRUE(entry.hasSubmenu);
  EXPECT_FALSE(entry.enabled);
}

TEST(MenuEntryTest, HeadersAndSeparatorsHaveNothingButTheirTitle) {
  const auto header = MenuItem::sectionHeaderWithTitle("Recent");
  const auto separator = MenuItem::separatorItem();
  for (const auto& item : {header, separator}) {
    item->setSubtitle("second");
    item->setKeyEquivalent("k");
    item->setState(MenuItem::State::on);
    item->setBadge(kvl::MenuItemBadge::updatesWithCount(3));
    item->setSubmenu(std::make_shared<kvltest::Menu>());
    const auto entry = entryOf(*item);
    EXPECT_EQ(entry.subtitle + entry.shortcut + entry.badge, QString());
    EXPECT_EQ(entry.state, MenuItem::State::off);
    EXPECT_FALSE(entry.hasSubmenu);
  }
  EXPECT_EQ(entryOf(*header).title, QStringLiteral("Recent"));
  EXPECT_EQ(entryOf(*separator).title, QString());
}

}  // namespace
