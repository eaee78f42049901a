// Texts that the host has from others, wherever it shows them.
#include "examples/qthost/ServiceMenus.h"
#include "examples/qthost/Texts.h"

#include <gmock/gmock.h>

namespace {

using qthost::lineOf;

TEST(HostTextsTest, ALineHasNoBreaksAndAnEnd) {
  EXPECT_EQ(lineOf("a\nb\tc\r\u2028d\x01"), "a b c  d ");
  EXPECT_EQ(lineOf(std::string(500, 'x')), QString(500, 'x'));
  EXPECT_EQ(lineOf(std::string(501, 'x')), QString(499, 'x') + u'…');
  EXPECT_EQ(lineOf("abcdef", 4), "abc…");
  EXPECT_EQ(lineOf("ab\U0001F600def", 4), "ab…");
  EXPECT_EQ(lineOf("ab\U0001F600", 4), "ab\U0001F600");
  EXPECT_EQ(lineOf(""), "");
}

TEST(HostTextsTest, AmpersandsAreReadAsTheyWereWritten) {
  for (const char* text : {"", "a&b", "a && b", "&", "&&&", "a&"})
    EXPECT_EQ(qthost::readText(qthost::withoutMnemonic(text)), text);
  EXPECT_EQ(qthost::readText("D&ocuments && &more"), "Documents & more");
  const auto menu = std::make_shared<kvl::Menu>();
  menu->addItem(kvl::MenuItem::itemWithTitle("&a\n&&"));
  menu->items().front()->setSubmenu(std::make_shared<kvl::Menu>());
  EXPECT_EQ(qthost::readText(qthost::barMenus(menu, {}).front().title), "&a &&");
}

}  // namespace
