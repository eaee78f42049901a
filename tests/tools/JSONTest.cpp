#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Text.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;
using kvlocal::jsonText;

TEST(JSONTest, WritesEveryKindOfValue) {
  const kvl::Dictionary value{
      {"null", nullptr},
      {"truth", true},
      {"integer", std::numeric_limits<std::int64_t>::min()},
      {"real", 0.1},
      {"date", kvl::Date::since1970(0)},
      {"text", "a"},
      {"data", kvl::Data::fromText("kvl")},
      {"array", kvl::Array{1, kvl::Array{}, kvl::Dictionary{}}},
  };
  EXPECT_EQ(jsonText(value),
            R"({"null":null,"truth":true,"integer":-9223372036854775808,"real":0.1,)"
            R"("date":"1970-01-01T00:00:00Z","text":"a","data":"a3Zs","array":[1,[],{}]})");
}

TEST(JSONTest, RealsThatJSONCannotHoldAreNull) {
  EXPECT_EQ(jsonText(std::numeric_limits<double>::infinity()), "null");
  EXPECT_EQ(jsonText(std::numeric_limits<double>::quiet_NaN()), "null");
  EXPECT_EQ(jsonText(1e300), "1e+300");
}

struct TextCase {
  std::string_view text;
  std::string_view json;
};

class JSONTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(JSONTextTest, IsEscapedIntoValidUTF8) {
  EXPECT_EQ(jsonText(GetParam().text), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, JSONTextTest,
    testing::Values(TextCase{"", R"("")"}, TextCase{R"(say "a\b")", R"("say \"a\\b\"")"},
                    TextCase{"\n\r\t", R"("\n\r\t")"},
                    TextCase{"\0\x1f\x7f"sv, R"("\u0000\u001f\u007f")"},
                    TextCase{"\u00e4 \u20ac \U0001F600", "\"\u00e4 \u20ac \U0001F600\""},
                    TextCase{"\xc2\x80|\xc2\x85|\xc2\x9f|\xc2\xa0",
                             "\"\\u0080|\\u0085|\\u009f|\xc2\xa0\""},
                    TextCase{"\u2027|\u2028|\u2029|\u202a|\u202e|\u202f",
                             "\"\u2027|\\u2028|\\u2029|\\u202a|\\u202e|\u202f\""},
                    TextCase{"\u2065|\u2066|\u2069|\u206a", "\"\u2065|\\u2066|\\u2069|\\u206a\""},
                    TextCase{"\u200b|\u200d|\u200f|\ufeff", "\"\\u200b|\u200d|\\u200f|\\ufeff\""},
                    TextCase{"\U000e0041", R"("\udb40\udc41")"}, TextCase{"a\xff", "\"a\uFFFD\""},
                    TextCase{"\xc0\xaf", "\"\uFFFD\uFFFD\""},                      // overlong
                    TextCase{"\xed\xa0\x80", "\"\uFFFD\uFFFD\uFFFD\""},            // a surrogate
                    TextCase{"\xf4\x90\x80\x80", "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},  // beyond the end
                    TextCase{"\xe2\x82", "\"\uFFFD\uFFFD\""}));                    // cut off

TEST(JSONTest, KeysAreEscapedToo) {
  EXPECT_EQ(jsonText(kvl::Dictionary{{"a\"\n", 1}}), R"({"a\"\n":1})");
}

TEST(JSONTest, Base64FollowsTheStandardsVectors) {
  const std::vector<std::pair<std::string_view, std::string_view>> vectors{
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xff\xfe\0"sv, "//4A"}};
  for (const auto& [bytes, text] : vectors) EXPECT_EQ(kvlocal::base64(bytes), text);
}

TEST(JSONTest, UTF8IsRecognised) {
  EXPECT_TRUE(kvlocal::isUTF8(""));
  EXPECT_TRUE(kvlocal::isUTF8("\0\u20ac"sv));
  EXPECT_FALSE(kvlocal::isUTF8("\x80"));
  EXPECT_FALSE(kvlocal::isUTF8("\u20ac\xe2"));
}

}  // namespace
