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
        "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xF0\x9F\x98"s})
    EXPECT_EQ(shownLine("a" + bytes + "b"),
              "a" + repeated("\xEF\xBF\xBD", static_cast<int>(bytes.size())) + "b");
}

TEST(ShownTextTest, AByteOrderMarkDoesNotCount) {
  const auto longest = "\xEF\xBB\xBF" + repeated("a", kLongestShownText);
  EXPECT_EQ(shownLine(longest), longest);
}

}  // namespace
