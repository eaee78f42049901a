#include "tools/kvlocal/EventFeed.h"
#include "tools/kvlocal/Text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <string>

namespace kvlocal {
namespace {

using namespace std::string_literals;

struct Escape {
  std::string value, text;
};

void PrintTo(const Escape& escape, std::ostream* stream) {
  *stream << escape.text;
}

std::string outputOf(const char* script) {
  std::string output;
  FILE* const pipe = popen(script, "r");
  if (pipe == nullptr) return "no shell";
  std::array<char, 256> block{};
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe))
    output.append(block.data(), count);
  EXPECT_EQ(pclose(pipe), 0);
  return output;
}

class EscapeTest : public testing::TestWithParam<Escape> {};

TEST_P(EscapeTest, KeepsAnyValueInOneFieldOfOneLine) {
  EXPECT_EQ(escaped(GetParam().value), GetParam().text);
}

TEST_P(EscapeTest, IsTurnedBackByTheShell) {
  ASSERT_EQ(setenv("KVLOCAL_VALUE", GetParam().text.c_str(), 1), 0);
  EXPECT_EQ(outputOf(R"(printf %b "$KVLOCAL_VALUE")"), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Values, EscapeTest,
    testing::Values(Escape{"", ""}, Escape{R"({"number": 1})", R"({"number": 1})"},
                    Escape{"a b~", "a b~"}, Escape{R"(a\n)", R"(a\\n)"},
                    Escape{R"(\c\0101)", R"(\\c\\0101)"}, Escape{"\ta\rb\nc", R"(\ta\rb\nc)"},
                    Escape{"\x1B[2J\x7F", R"(\0033[2J\0177)"}, Escape{"a\0"s + "7", R"(a\00007)"},
                    Escape{"h\u00E9\u4E2D\U0001F600", "h\u00E9\u4E2D\U0001F600"},
                    Escape{"\xC2\x85|\xC2\x9B|\xC2\xA0", "\\0302\\0205|\\0302\\0233|\xC2\xA0"},
                    Escape{
                        "\u2027|\u2028|\u2029|\u202E|\u202F",
                        "\u2027|\\0342\\0200\\0250|\\0342\\0200\\0251|\\0342\\0200\\0256|\u202F"},
                    Escape{"\u2065|\u2066|\u2069|\u206A",
                           "\u2065|\\0342\\0201\\0246|\\0342\\0201\\0251|\\0342\\0201\\0252"},
                    Escape{"\u061C\u200E\u200D", "\\0330\\0234\\0342\\0200\\0216\u200D"},
                    Escape{"a\xFF\xC3z\xC3", R"(a\0377\0303z\0303)"}));

TEST(WrappedTextTest, BreaksAtSpacesBelowTheSecondColumn) {
  EXPECT_EQ(wrapped("  -a    one two three", 16), "  -a    one two\n        three");
  EXPECT_EQ(wrapped("one two three\n\n  x  y\n", 9), "one two\n  three\n\n  x  y\n");
  EXPECT_EQ(wrapped("a b", 80), "a b");
}

TEST(WrappedTextTest, BreaksWordsThatAreTooLong) {
  EXPECT_EQ(wrapped("  0123456789012345", 10), "  01234567\n    890123\n    45");
  EXPECT_EQ(wrapped("ab 0123456789012345", 10), "ab\n  01234567\n  89012345");
}

struct Line {
  KVLEvent::Text name, data, identifier;
  std::string plain, json;
};

void PrintTo(const Line& line, std::ostream* stream) {
  *stream << line.json;
}

class EventLineTest : public testing::TestWithParam<Line> {
 protected:
  EventLineTest() {
    event.setEvent(GetParam().name);
    event.setData(GetParam().data);
    event.setIdentifier(GetParam().identifier);
  }
  KVLEvent event;
};

TEST_P(EventLineTest, IsWhatThePlainFormSays) {
  EXPECT_EQ(plainEventLine(event), GetParam().plain);
}

TEST_P(EventLineTest, IsOneObjectInJSON) {
  EXPECT_EQ(jsonEventLine(event), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Events, EventLineTest,
    testing::Values(Line{"tick", R"({"number":1})", "1", "tick\tid=1\tdata={\"number\":1}\n",
                         R"({"event":"tick","data":"{\"number\":1}","id":"1"})"
                         "\n"},
                    Line{"tick", {}, {}, "tick\n", "{\"event\":\"tick\"}\n"},
                    Line{
                        "tick", "x", {}, "tick\tdata=x\n", "{\"event\":\"tick\",\"data\":\"x\"}\n"},
                    Line{"tick", {}, "7", "tick\tid=7\n", "{\"event\":\"tick\",\"id\":\"7\"}\n"},
                    Line{"tick", "", "", "tick\tid=\tdata=\n",
                         "{\"event\":\"tick\",\"data\":\"\",\"id\":\"\"}\n"},
                    Line{"a\tid=2", "one\rtwo", "\\", "a\\tid=2\tid=\\\\\tdata=one\\rtwo\n",
                         "{\"event\":\"a\\tid=2\",\"data\":\"one\\rtwo\",\"id\":\"\\\\\"}\n"}));

TEST(ReceivingTextTest, RepeatsOnlyNumbersOfAService) {
  EXPECT_EQ(receivingText("17"), "receiving 17 bytes");
  EXPECT_EQ(receivingText(std::nullopt), "receiving the answer");
  for (const char* const other : {"", "-1", "5\x1b[2J", "5\u202e", "5 6", "0x5"})
    EXPECT_EQ(receivingText(other), "receiving the answer") << other;
}

}  // namespace
}  // namespace kvlocal
