#include "platform/core/ASCII.h"

#include <gtest/gtest.h>

#include <string>

namespace {

namespace ascii = kvl::ascii;

// The characters of which `is` holds.
template <class Predicate>
std::string charactersThat(Predicate is) {
  std::string found;
  for (int c = 0; c < 256; ++c)
    if (is(static_cast<char>(c))) found += static_cast<char>(c);
  return found;
}

TEST(ASCIITest, LettersAndDigitsAreThoseOfASCII) {
  const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  EXPECT_EQ(charactersThat(ascii::isDigit), "0123456789");
  EXPECT_EQ(charactersThat(ascii::isLetter), letters);
  EXPECT_EQ(charactersThat(ascii::isLetterOrDigit), "0123456789" + letters);
}

TEST(ASCIITest, HexadecimalDigitsHaveTheirValues) {
  EXPECT_EQ(charactersThat([](char c) { return ascii::hexDigit(c) >= 0; }),
            "0123456789ABCDEFabcdef");
  EXPECT_EQ(ascii::hexDigit('7'), 7);
  EXPECT_EQ(ascii::hexDigit('a'), 10);
  EXPECT_EQ(ascii::hexDigit('F'), 15);
}

TEST(ASCIITest, OnlyLettersHaveACase) {
  EXPECT_EQ(charactersThat([](char c) { return ascii::toLower(c) != c; }),
            "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
  EXPECT_EQ(charactersThat([](char c) { return ascii::toUpper(c) != c; }),
            "abcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(ascii::toLower('Z'), 'z');
  EXPECT_EQ(ascii::toUpper('q'), 'Q');
}

TEST(ASCIITest, ComparesWithoutRegardToCaseWholeTextsOnly) {
  EXPECT_TRUE(ascii::equalIgnoringCase("Content-LENGTH", "content-length"));
  EXPECT_TRUE(ascii::equalIgnoringCase("", ""));
  EXPECT_FALSE(ascii::equalIgnoringCase("ab", "abc"));
  EXPECT_FALSE(ascii::equalIgnoringCase("a@", "A`"));
  EXPECT_FALSE(ascii::equalIgnoringCase("\xc3\x84", "\xc3\xa4"));
}

TEST(ASCIITest, TrimsBlanksAtBothEnds) {
  EXPECT_EQ(ascii::trimmed(" \t\r\na b\t \n"), "a b");
  EXPECT_EQ(ascii::trimmed("a"), "a");
  EXPECT_EQ(ascii::trimmed(" \t"), "");
  EXPECT_EQ(ascii::trimmed(""), "");
  EXPECT_EQ(ascii::trimmed("\va\u00a0"), "\va\u00a0");
}

}  // namespace
