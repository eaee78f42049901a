#include <local/platform/PrintableText.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;
using kvl::printable;

TEST(PrintableTextTest, LeavesTextAlone) {
  for (const std::string text : {"", "a b~", R"(C:\new {"a":"\n"})", "h\u00e9\u4e2d\U0001f600",
                                 "\u05d0\u0627", "\u00a0\u3000", "a\u200cb\u200dc\ufe0f", "\u0600"})
    EXPECT_EQ(printable(text), text);
}

TEST(PrintableTextTest, EscapesEveryControlCharacter) {
  for (int byte = 0; byte < 0x20; ++byte)
    EXPECT_EQ(printable(std::string(1, static_cast<char>(byte))).front(), '\\') << byte;
  EXPECT_EQ(printable("\r\n\t\x1b[2J\x7f"), R"(\r\n\t\x1b[2J\x7f)");
  EXPECT_EQ(printable("a\0"s + "7"), R"(a\x007)");
  for (int byte = 0x80; byte < 0xa0; ++byte)
    EXPECT_EQ(printable(std::string{'\xc2', static_cast<char>(byte)}).substr(0, 3), R"(\u{)")
        << byte;
  EXPECT_EQ(printable("\xc2\x9b"), R"(\u{9b})");
}

struct Range {
  char32_t first, last;
};

// Before and behind each of them stands a character that shows, or that is none.
TEST(PrintableTextTest, WhatTurnsHidesOrSeparatesTextIsUnprintable) {
  constexpr std::array ranges{
      Range{0x7f, 0x9f},       Range{0xad, 0xad},       Range{0x61c, 0x61c},
      Range{0x180e, 0x180e},   Range{0x200b, 0x200b},   Range{0x200e, 0x200f},
      Range{0x2028, 0x202e},   Range{0x2060, 0x2064},   Range{0x2066, 0x206f},
      Range{0xfeff, 0xfeff},   Range{0xfff9, 0xfffb},   Range{0x1bca0, 0x1bca3},
      Range{0x1d173, 0x1d17a}, Range{0xe0001, 0xe0001}, Range{0xe0020, 0xe007f}};
  for (const auto& [first, last] : ranges) {
    EXPECT_FALSE(kvl::isUnprintable(first - 1)) << std::hex << std::uint32_t{first};
    for (char32_t point = first; point <= last; ++point)
      EXPECT_TRUE(kvl::isUnprintable(point)) << std::hex << std::uint32_t{point};
    EXPECT_FALSE(kvl::isUnprintable(last + 1)) << std::hex << std::uint32_t{last};
  }
}

TEST(PrintableTextTest, EscapesUnprintableCharactersByTheirNumber) {
  EXPECT_EQ(printable("\u202egpj.exe\u202c"), R"(\u{202e}gpj.exe\u{202c})");
  EXPECT_EQ(printable("a\u2028b\u2066c\u061c"), R"(a\u{2028}b\u{2066}c\u{61c})");
  EXPECT_EQ(printable("\U000e0041"), R"(\u{e0041})");
}

TEST(PrintableTextTest, EscapesBytesThatAreNoUTF8OneByOne) {
  EXPECT_EQ(printable("a\xff\xc3z\xc3"), R"(a\xff\xc3z\xc3)");
  EXPECT_EQ(printable("\xc0\xaf"), R"(\xc0\xaf)");                  // overlong
  EXPECT_EQ(printable("\xed\xa0\x80"), R"(\xed\xa0\x80)");          // a surrogate
  EXPECT_EQ(printable("\xf4\x90\x80\x80"), R"(\xf4\x90\x80\x80)");  // beyond the end
  EXPECT_EQ(printable("\xe2\x82"), R"(\xe2\x82)");                  // cut off
}

}  // namespace
