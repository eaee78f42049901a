#include "platform/interface/binding/ShownText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::literals;
using kvl::interface::kLongestShownText;
using kvl::interface::shownLine;
using kvl::interface::shownLines;

constexpr std::string_view kEllipsis = "\xE2\x80\xA6";
constexpr std::string_view kFace = "\xF0\x9F\x98\x80";  // two UTF-16 code units

std::string repeated(std::string_view text, int times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

TEST(ShownTextTest, ALineHasNoControlCharacters) {
  EXPECT_EQ(shownLine("a\tb\nc\rd\x1b\x7f\0e"sv), "a b c d   e");
  EXPECT_EQ(shownLine("a\xC2\x80\xC2\x9F\xC2\xA0z"), "a  \xC2\xA0z");
  EXPECT_EQ(shownLine("a\xE2\x80\xA8\xE2\x80\xA9z"), "a  z");
  EXPECT_EQ(shownLine(""), "");
}

TEST(ShownTextTest, LinesKeepTheirBreaks) {
  EXPECT_EQ(shownLines("a\nb\xE2\x80\xA8\x63\xE2\x80\xA9\x64\te\r"), "a\nb\nc\nd e ");
}

TEST(ShownTextTest, ATextOfAnySizeIsCut) {
  const auto longest = repeated("a", kLongestShownText);
  EXPECT_EQ(shownLine(longest), longest);
  const auto cut = repeated("a", kLongestShownText - 1).append(kEllipsis);
  EXPECT_EQ(shownLine(longest + "a"), cut);
  EXPECT_EQ(shownLine(repeated("a", 1 << 20)), cut);
  EXPECT_EQ(shownLines(repeated("\n", 1 << 20)),
            repeated("\n", kLongestShownText - 1).append(kEllipsis));
}

TEST(ShownTextTest, ACutTextEndsWithAWholeCharacter) {
  const auto faces = repeated(kFace, kLongestShownText / 2);
  EXPECT_EQ(shownLine(faces), faces);
  const auto cut = repeated(kFace, kLongestShownText / 2 - 1);
  EXPECT_EQ(shownLine(faces + "x"), std::string(cut).append(kEllipsis));
  EXPECT_EQ(shownLine("x" + faces), std::string("x").append(cut).append(kEllipsis));
}

// Overlong forms, surrogates, what is beyond Unicode, and characters that are cut off.
TEST(ShownTextTest, EachByteThatIsNoTextIsReplaced) {
  for (const auto& bytes :
       {"\xFF"s, "\xC3"s, "\x80"s, "\xC0\xAF"s, "\xE0\x80\xAF"s, "\xED\xA0\x80"s,
        "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xF0\x9F\x98"s, "\xC1\xBF"s, "\xE0\x9F\xBF"s,
        "\xF0\x8F\xBF\xBF"s, "\xED\xBF\xBF"s, "\xF8\x88\x80\x80"s, "\xBF"s})
    EXPECT_EQ(shownLine("a" + bytes + "b"),
              "a" + repeated("\xEF\xBF\xBD", static_cast<int>(bytes.size())) + "b");
}

TEST(ShownTextTest, ACharacterThatAnotherInterruptsIsReplaced) {
  EXPECT_EQ(shownLine("\xC3x"), "\xEF\xBF\xBDx");
  EXPECT_EQ(shownLine("\xE2x\x82"), "\xEF\xBF\xBDx\xEF\xBF\xBD");
  EXPECT_EQ(shownLine("\xF0\x9F\x98x"), repeated("\xEF\xBF\xBD", 3) + "x");
  EXPECT_EQ(shownLine("\xC3\xC3\xA4"), "\xEF\xBF\xBD\xC3\xA4");
}

TEST(ShownTextTest, TheFirstAndTheLastCharacterOfEachLengthAreShown) {
  for (const auto& text : {" "s, "~"s, "\xC2\xA0"s, "\xDF\xBF"s, "\xE0\xA0\x80"s, "\xED\x9F\xBF"s,
                           "\xEE\x80\x80"s, "\xEF\xBF\xBF"s, "\xF0\x90\x80\x80"s,
                           "\xF4\x8F\xBF\xBF"s, "\xE2\x80\xA7"s, "\xE2\x80\xAA"s})
    EXPECT_EQ(shownLine(text), text);
  EXPECT_EQ(shownLine("\x01\x1f\x7f\xC2\x80\xC2\x9F"), "     ");
}

TEST(ShownTextTest, CharactersBeyondSixteenBitsCountTwice) {
  const auto almost = repeated("a", kLongestShownText - 2);
  for (const auto& one : {"\xEF\xBF\xBF"s, "\xC3\xA4"s})
    EXPECT_EQ(shownLine(almost + one + "a"), almost + one + "a");
  for (const auto& two : {"\xF0\x90\x80\x80"s, "\xF4\x8F\xBF\xBF"s}) {
    EXPECT_EQ(shownLine(almost + two), almost + two);
    EXPECT_EQ(shownLine(almost + two + "a"), almost + std::string(kEllipsis));
  }
}

TEST(ShownTextTest, AByteOrderMarkDoesNotCount) {
  const auto longest = "\xEF\xBB\xBF" + repeated("a", kLongestShownText);
  EXPECT_EQ(shownLine(longest), longest);
}

}  // namespace
