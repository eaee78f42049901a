#include <local/platform/Text.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace std::string_view_literals;
using kvl::jsonText;

TEST(JSONTextTest, WritesEveryKindOfValue) {
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

TEST(JSONTextTest, RealsThatJSONCannotHoldAreNull) {
  EXPECT_EQ(jsonText(std::numeric_limits<double>::infinity()), "null");
  EXPECT_EQ(jsonText(std::numeric_limits<double>::quiet_NaN()), "null");
  EXPECT_EQ(jsonText(1e300), "1e+300");
}

struct TextCase {
  std::string_view text;
  std::string_view json;
};

class JSONStringTest : public testing::TestWithParam<TextCase> {};

TEST_P(JSONStringTest, IsEscapedIntoValidUTF8) {
  EXPECT_EQ(jsonText(GetParam().text), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, JSONStringTest,
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

TEST(JSONTextTest, KeysAreEscapedToo) {
  EXPECT_EQ(jsonText(kvl::Dictionary{{"a\"\n", 1}}), R"({"a\"\n":1})");
}

// Recursion would need more stack than any thread has.
TEST(JSONTextTest, ValuesMayBeNestedDeeply) {
  constexpr int kDepth = 200'000;
  kvl::Value value = 1;
  for (int i = 0; i < kDepth; ++i) {
    if (i % 2 == 0) {
      value = kvl::Array{kvl::Value(std::move(value))};
    } else {
      value = kvl::Dictionary{{"a", std::move(value)}};
    }
  }
  std::string expected;
  for (int i = 0; i < kDepth / 2; ++i) expected += "{\"a\":[";
  expected += "1";
  for (int i = 0; i < kDepth / 2; ++i) expected += "]}";
  EXPECT_TRUE(jsonText(value) == expected);
}

TEST(JSONTextTest, ContainersAreClosedWhereTheyEnd) {
  const kvl::Value value = kvl::Dictionary{
      {"a", kvl::Dictionary{}}, {"b", kvl::Array{kvl::Value(kvl::Array{1, 2}), 3}}, {"c", nullptr}};
  EXPECT_EQ(jsonText(value), R"({"a":{},"b":[[1,2],3],"c":null})");
}

TEST(JSONTextTest, DatesWithoutATextAreEmpty) {
  EXPECT_EQ(jsonText(kvl::Date(1e300)), R"("")");
  EXPECT_EQ(jsonText(kvl::Date::since1970(0.9)), R"("1970-01-01T00:00:00Z")");
}

class Thing final : public kvl::Object {
 public:
  [[nodiscard]] std::string_view typeName() const noexcept override { return "thing"; }
  [[nodiscard]] std::string description() const override { return "a \"thing\"\n"; }
};

TEST(JSONTextTest, ObjectsAreTheirDescriptions) {
  EXPECT_EQ(jsonText(std::make_shared<Thing>()), R"("a \"thing\"\n")");
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(Base64Test, FollowsTheStandardsVectorsBothWays) {
  const std::vector<std::pair<std::string_view, std::string_view>> vectors{
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xff\xfe\0"sv, "//4A"},
      {"\xfb\xef\xbe"sv, "++++"}};
  for (const auto& [bytes, text] : vectors) {
    EXPECT_EQ(kvl::base64(bytesOf(bytes)), text);
    EXPECT_EQ(kvl::dataFromBase64(text), kvl::Data::fromText(bytes)) << text;
  }
}

TEST(Base64Test, OtherTextsAreNone) {
  const std::vector<std::string_view> texts{
      "Zg",    "Zg=",   "Zg===",    "=",       "==",    "====",   "Z===",
      "Zm9v=", "Zm9vZ", "Zg==Zg==", "Zg= =",   " Zg==", "Zg==\n", "Zm\n9v",
      "Zm9-",  "Zm9_",  "Zm9\xe4",  "Zm9\0"sv, "Zh==",  "Zm9="};
  for (const std::string_view text : texts) EXPECT_FALSE(kvl::dataFromBase64(text)) << text;
}

TEST(UTF8Test, IsRecognisedAndMade) {
  for (const std::string_view text : {""sv, "a"sv, "\0\u20ac"sv, "\U0010FFFF"sv}) {
    EXPECT_TRUE(kvl::isUTF8(text)) << text;
    EXPECT_EQ(kvl::validUTF8(text), text);
  }
  const std::vector<std::pair<std::string_view, std::string_view>> others{
      {"\x80", "\uFFFD"},
      {"a\xffz", "a\uFFFDz"},
      {"\u20ac\xe2", "\u20ac\uFFFD"},
      {"\xe2\x82|", "\uFFFD\uFFFD|"},
      {"\xc0\xaf", "\uFFFD\uFFFD"},
      {"\xed\xa0\x80\0"sv, "\uFFFD\uFFFD\uFFFD\0"sv}};
  for (const auto& [text, valid] : others) {
    EXPECT_FALSE(kvl::isUTF8(text));
    EXPECT_EQ(kvl::validUTF8(text), valid);
  }
}

TEST(ErrorTextTest, SaysWhatAndWhyThenDomainAndCode) {
  const kvl::Error error(kvl::NSURLErrorDomain, -1004,
                         {{kvl::NSLocalizedDescriptionKey, "The connection failed."},
                          {kvl::NSLocalizedFailureReasonErrorKey, "Connection refused"}});
  EXPECT_EQ(kvl::errorText(error),
            "The connection failed. (Connection refused) [NSURLErrorDomain -1004]");
  EXPECT_EQ(kvl::errorWords(error).what, "The connection failed.");
  EXPECT_EQ(kvl::errorWords(error).why, "Connection refused");
}

TEST(ErrorTextTest, SaysNothingTwice) {
  const kvl::Error said(kvl::NSCocoaErrorDomain, 256,
                        {{kvl::NSLocalizedDescriptionKey, "It failed, since it is late."},
                         {kvl::NSLocalizedFailureReasonErrorKey, "it is late"}});
  EXPECT_EQ(kvl::errorText(said), "It failed, since it is late. [NSCocoaErrorDomain 256]");
  const kvl::Error bare("org.example", 7);
  EXPECT_THAT(kvl::errorText(bare), testing::EndsWith(" [org.example 7]"));
  EXPECT_THAT(kvl::errorText(bare), testing::Not(testing::HasSubstr("error 7")));
}

TEST(ErrorTextTest, TakesTheWordsOfWhoeverFailed) {
  const kvl::Error missing(kvl::NSPOSIXErrorDomain, ENOENT);
  EXPECT_EQ(kvl::errorWords(missing).why, std::strerror(ENOENT));
  EXPECT_THAT(kvl::errorText(missing), testing::HasSubstr(std::strerror(ENOENT)));
  const kvl::Error parser("org.example", 7, {{kvl::NSDebugDescriptionErrorKey, "a stray comma"}});
  EXPECT_EQ(kvl::errorText(parser), "a stray comma [org.example 7]");
  EXPECT_EQ(kvl::errorText(kvl::Error(kvl::NSPOSIXErrorDomain, kvl::NSURLErrorUnsupportedURL)),
            "No URL that can be used was given. [NSPOSIXErrorDomain -1002]");
}

}  // namespace
