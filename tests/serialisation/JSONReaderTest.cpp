#include "platform/serialisation/JSONReader.h"
#include "tests/support/Joined.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <string>
#include <vector>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Dictionary;
using kvl::Error;
using kvl::Value;
using Kind = Value::Kind;

std::optional<Value> read(std::string_view text) {
  return kvl::valueFromJSON(Data::fromText(text), nullptr);
}

Error errorOf(std::string_view text) {
  std::optional<Error> error;
  EXPECT_EQ(kvl::valueFromJSON(Data::fromText(text), &error), std::nullopt) << text;
  return error.value_or(Error("none", 0));
}

std::string problemOf(std::string_view text) {
  const Error error = errorOf(text);
  const auto problem = error.userInfo()[kvl::NSDebugDescriptionErrorKey].string();
  return std::string(problem.value_or("absent"));
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(JSONReaderTest, ReadsEveryKind) {
  const auto value = read(R"({"n":null,"t":true,"f":false,"i":1,"r":1.5,"s":"x","a":[],"d":{}})");
  EXPECT_EQ(value, Value(Dictionary{{"n", nullptr},
                                    {"t", true},
                                    {"f", false},
                                    {"i", 1},
                                    {"r", 1.5},
                                    {"s", "x"},
                                    {"a", Array()},
                                    {"d", Dictionary()}}));
}

TEST(JSONReaderTest, ReadsAnyValueAtTopLevel) {
  EXPECT_EQ(read("null"), Value());
  EXPECT_EQ(read("true"), Value(true));
  EXPECT_EQ(read(" false\n"), Value(false));
  EXPECT_EQ(read("\t-12 "), Value(-12));
  EXPECT_EQ(read("2.5e1"), Value(25.0));
  EXPECT_EQ(read("\"text\""), Value("text"));
  EXPECT_EQ(read("\"esc\\taped\""), Value("esc\taped"));
  EXPECT_EQ(read("[]"), Value(Array()));
  EXPECT_EQ(read("{}"), Value(Dictionary()));
}

TEST(JSONReaderTest, ClearsTheErrorWhenItSucceeds) {
  std::optional<Error> error = Error("old", 1);
  EXPECT_TRUE(kvl::valueFromJSON(Data::fromText("null"), &error));
  EXPECT_EQ(error, std::nullopt);
}

TEST(JSONReaderTest, NumbersKeepTheirKind) {
  const std::pair<std::string_view, Value> table[] = {
      {"0", 0},
      {"1", 1},
      {"-1", -1},
      {"1.0", 1.0},
      {"1e2", 100.0},
      {"1E+2", 100.0},
      {"100e-2", 1.0},
      {"0.1", 0.1},
      {"0e0", 0.0},
      {"-1.5e-3", -0.0015},
      {"123456789012345678", 123456789012345678},
  };
  for (const auto& [text, value] : table) EXPECT_EQ(read(text), value) << text;
}

TEST(JSONReaderTest, NegativeZeroIsTheIntegerZeroUnlessItIsAReal) {
  EXPECT_EQ(read("-0"), Value(0));
  const auto real = read("-0.0");
  EXPECT_EQ(real, Value(0.0));
  EXPECT_TRUE(std::signbit(*real->real()));
}

TEST(JSONReaderTest, IntegersOf64BitsStayWholeAndLargerOnesBecomeReals) {
  const std::pair<std::string_view, Value> table[] = {
      {"9223372036854775807", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {"9223372036854775808", 9223372036854775808.0},
      {"-9223372036854775809", -9223372036854775808.0},
      {"9999999999999999999", 1e19},
      {"18446744073709551615", 18446744073709551616.0},
      {"18446744073709551616", 18446744073709551616.0},
      {"100000000000000000000", 1e20},
      {"[-100000000000000000000]", Array{-1e20}},
  };
  for (const auto& [text, value] : table) EXPECT_EQ(read(text), value) << text;
}

TEST(JSONReaderTest, NumbersThatNoRealIsNearAreErrors) {
  for (const std::string_view text : {"1e400", "-1e400", "[1e309]", "123456e99999999999999999999"})
    EXPECT_EQ(problemOf(text).substr(0, 24), "a number is out of range") << text;
  EXPECT_EQ(problemOf("1" + repeated("0", 400)), "a number is out of range at byte 0");
  EXPECT_EQ(problemOf("[1" + repeated("0", 400) + ".5]"), "a number is out of range at byte 1");
  EXPECT_EQ(read("1.7976931348623157e308"), Value(1.7976931348623157e308));
}

TEST(JSONReaderTest, NumbersTooSmallForARealBecomeZero) {
  const std::string tiny = "0." + repeated("0", 400) + "1";
  for (const std::string& text : std::vector<std::string>{
           "1e-400", "1e-99999999999999999999", tiny, tiny + "e-5", "0.1e-400", "0e999999999999"})
    EXPECT_EQ(read(text), Value(0.0)) << text;
  EXPECT_TRUE(std::signbit(*read("-1e-400")->real()));
  EXPECT_EQ(read("5e-324"), Value(5e-324));
  EXPECT_EQ(read("0." + repeated("0", 400) + "1e401"), Value(1.0));
}

TEST(JSONReaderTest, RealsAreRoundedToTheNearest) {
  EXPECT_EQ(read("0.30000000000000004"), Value(0.30000000000000004));
  EXPECT_EQ(read("9007199254740993.0"), Value(9007199254740992.0));
  EXPECT_EQ(read("1.00000000000000011102230246251565404236316680908203125"), Value(1.0));
  EXPECT_EQ(read("1.00000000000000011102230246251565404236316680908203126"),
            Value(1.0000000000000002));
}

TEST(JSONReaderTest, ReadsEveryEscape) {
  const std::pair<std::string_view, std::string_view> table[] = {
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {R"("\u0041\u00e9\u00E9\u20ac")", "Aéé€"},
      {R"("\ud83d\ude00")", "😀"},
      {R"("\uD800\uDC00\uDBFF\uDFFF")", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {R"("\uffff\ud7ff\ue000")", "\xEF\xBF\xBF\xED\x9F\xBF\xEE\x80\x80"},
      {R"("a\u0000b")", std::string_view("a\0b", 3)},
      {R"("\u007f\u0080\u07ff\u0800")", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"},
      {R"("plain \\ tail")", "plain \\ tail"},
  };
  for (const auto& [text, string] : table) EXPECT_EQ(read(text), Value(string)) << text;
}

TEST(JSONReaderTest, ReadsStringsWithAndWithoutEscapesSideBySide) {
  EXPECT_EQ(read(R"(["a","b\n","c","\\","","d\u0041","e"])"),
            Value(Array{"a", "b\n", "c", "\\", "", "dA", "e"}));
  EXPECT_EQ(read(R"({"a\n":"b","c":"\t","d":"e"})"),
            Value(Dictionary{{"a\n", "b"}, {"c", "\t"}, {"d", "e"}}));
}

TEST(JSONReaderTest, SkipsAByteOrderMark) {
  EXPECT_EQ(read("\xEF\xBB\xBF[1]"), Value(Array{1}));
  EXPECT_EQ(read("\xEF\xBB\xBF\"\\t\""), Value("\t"));
  EXPECT_EQ(problemOf("\xEF\xBB\xBF[1;]"), "a value is malformed at byte 4");
  EXPECT_EQ(read("[\"\xEF\xBB\xBF\"]"), Value(Array{"\xEF\xBB\xBF"}));
  EXPECT_EQ(read("\xEF\xBB\xBF\xEF\xBB\xBF[]"), std::nullopt);
}

TEST(JSONReaderTest, ExponentsMayBeAsLongAsTheyLike) {
  EXPECT_EQ(read("[1e-9223372036854775808]"), Value(Array{0.0}));
  EXPECT_EQ(read("[-1e-99999999999999999999]"), Value(Array{-0.0}));
  for (const std::string_view text : {"[1e9223372036854775807]", "[1e99999999999999999999]"})
    EXPECT_EQ(read(text), std::nullopt) << text;
}

TEST(JSONReaderTest, EmptyAndBlankTextsAreErrors) {
  for (const std::string_view text : {"", " ", "\n\t\r ", "\xEF\xBB\xBF", "\xEF\xBB\xBF "}) {
    EXPECT_TRUE(errorOf(text).is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
    EXPECT_EQ(problemOf(text).substr(0, 5), "Empty");
  }
}

TEST(JSONReaderTest, AnErrorSaysWhatIsWrongAndWhere) {
  const Error error = errorOf("[1, oops]");
  EXPECT_TRUE(error.is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
  EXPECT_EQ(error.code(), 3840);
  const std::pair<std::string_view, std::string_view> table[] = {
      {"[1, oops]", "a value is malformed at byte 4"},
      {R"({"a" 1})", "a colon is missing at byte 5"},
      {R"({1:2})", "a key is missing at byte 1"},
      {R"({"a":1,})", "a key is missing at byte 7"},
      {"[1 2]", "a comma or the end of a container is missing at byte 3"},
      {"[1}", "a comma or the end of a container is missing at byte 2"},
      {"[1] []", "something follows the document at byte 4"},
      {"1 2", "something follows the document at byte 2"},
      {"[[1]", "the text ends within a container at byte 3"},
      {"[1", "the text ends within a container at byte 1"},
      {R"(["\x"])", "an escape is malformed at byte 1"},
  };
  for (const auto& [text, problem] : table) EXPECT_EQ(problemOf(text), problem) << text;
}

TEST(JSONReaderTest, RefusesMalformedNumbersAndWords) {
  for (const std::string_view text :
       {"01",     "-",    "-a",        "+1",       ".5",   "1.",        "1.e1", "1e",    "1e+",
        "1e1.5",  "0x1",  "1_0",       "--1",      "1-",   "1.2.3",     "00",   "-01",   "1a",
        "1\"a\"", "12e",  "1\xC3\xA9", "Infinity", "NaN",  "-Infinity", "nul",  "nulll", "tru",
        "truee",  "fals", "falsey",    "True",     "NULL", "true\x01"}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
    EXPECT_EQ(read("[" + std::string(text) + "]"), std::nullopt) << text;
    EXPECT_EQ(read("{\"a\":" + std::string(text) + "}"), std::nullopt) << text;
  }
}

TEST(JSONReaderTest, RefusesMalformedStrings) {
  for (const std::string_view text : {"\"",
                                      "\"a",
                                      "'a'",
                                      "\"\\\"",
                                      "\"\\a\"",
                                      "\"\\u12\"",
                                      "\"\\u123g\"",
                                      "\"\\u 123\"",
                                      "\"\\u-123\"",
                                      "\"\\U0041\"",
                                      "\"\\",
                                      "\"a\"b",
                                      "\"a\nb\"",
                                      "\"\x01\"",
                                      "\"\x1f\"",
                                      "\"\\0\"",
                                      "\"\\x41\"",
                                      "\"\\ud800\"",
                                      "\"\\udc00\"",
                                      "\"\\ud800\\u0041\"",
                                      "\"\\ud800\\ud800\"",
                                      "\"\\ud800x\"",
                                      "\"\\ud800\\\"",
                                      "\"\\udc00\\ud800\""}) {
    EXPECT_EQ(read(text), std::nullopt) << text;
    EXPECT_EQ(read("[" + std::string(text) + "]"), std::nullopt) << text;
    EXPECT_EQ(read("{" + std::string(text) + ":1}"), std::nullopt) << text;
  }
}

TEST(JSONReaderTest, RefusesBytesThatAreNotUTF8) {
  for (const std::string_view bytes :
       {"\x80", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xFF", "\xE2\x82",
        "\xF4\x90\x80\x80"}) {
    EXPECT_EQ(read("[\"" + std::string(bytes) + "\"]"), std::nullopt);
    EXPECT_EQ(read("{\"" + std::string(bytes) + "\":1}"), std::nullopt);
    EXPECT_EQ(read("[" + std::string(bytes) + "]"), std::nullopt);
  }
  EXPECT_EQ(read(std::string_view("\0[\0]\0", 5)), std::nullopt);
  EXPECT_EQ(read(std::string_view("[\0]", 3)), std::nullopt);
  EXPECT_EQ(read(std::string_view("[]\0", 3)), std::nullopt);
}

TEST(JSONReaderTest, RefusesMalformedStructures) {
  for (const std::string_view text : {"[",           "]",        "{",          "}",
                                      "[}",          "{]",       "[,]",        "[1,]",
                                      "[,1]",        "[1,,2]",   "[1 ,, 2]",   "{,}",
                                      "{\"a\"}",     "{\"a\":}", "{\"a\":1,}", "{\"a\":1 \"b\":2}",
                                      "{\"a\"::1}",  "{:1}",     "{a:1}",      "{\"a\",1}",
                                      "{null:1}",    "{[]:1}",   "[\"a\":1]",  "[1:2]",
                                      ":",           ",",        "[]]",        "[][]",
                                      "{}{}",        "1,",       "[1]x",       "// c\n1",
                                      "[1/**/]",     "[1]\x0c",  "[\x0c]",     "[\x1a]",
                                      "[1\xC2\xA0]", "[[]",      "{\"a\":[}",  "{\"a\":{}",
                                      "[{]}",        "\"a\":1"})
    EXPECT_EQ(read(text), std::nullopt) << text;
}

TEST(JSONReaderTest, WhiteSpaceMayStandBetweenTokens) {
  EXPECT_EQ(read(" \t\n\r{ \"a\" : [ 1 , \"b\" , true , { } , [ ] ] } \n"),
            Value(Dictionary{{"a", Array{1, "b", true, Dictionary(), Array()}}}));
}

TEST(JSONReaderTest, ReadsNestingToTheLimitAndNoFurther) {
  const std::size_t limit = kvl::kMaximumJSONDepth;
  EXPECT_TRUE(read(repeated("[", limit) + repeated("]", limit)));
  EXPECT_TRUE(read(repeated("{\"a\":", limit) + "1" + repeated("}", limit)));
  EXPECT_TRUE(read(repeated("[", limit - 1) + "1,{}" + repeated("]", limit - 1)));
  const std::string problem = "containers are nested too deeply at byte 512";
  EXPECT_EQ(problemOf(repeated("[", limit + 1) + repeated("]", limit + 1)), problem);
  EXPECT_EQ(read(repeated("[{\"a\":", limit / 2) + "[]" + repeated("}]", limit / 2)), std::nullopt);
}

TEST(JSONReaderTest, AMillionOpenContainersAreAnError) {
  EXPECT_EQ(read(repeated("[", 1'000'000)), std::nullopt);
  EXPECT_EQ(read(repeated("{\"a\":", 1'000'000)), std::nullopt);
  EXPECT_EQ(read(repeated("[", 1'000'000) + repeated("]", 1'000'000)), std::nullopt);
}

TEST(JSONReaderTest, TextsThatEndAnywhereAreErrors) {
  const std::string text = R"({"a":[1,-2.5e3,"x\né",{"b":null}],"c":true})";
  for (std::size_t size = 0; size < text.size(); ++size)
    EXPECT_EQ(read(text.substr(0, size)), std::nullopt) << text.substr(0, size);
  EXPECT_TRUE(read(text));
}

// Bytes behind which there is no memory, so that a reader that goes further ends the process.
class BytesAtAnEnd {
 public:
  explicit BytesAtAnEnd(std::string_view text) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    mapping_ = {static_cast<std::uint8_t*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE,
                                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
                2 * page};
    EXPECT_EQ(mprotect(mapping_.data() + page, page, PROT_NONE), 0);
    bytes_ = mapping_.subspan(page - text.size(), text.size());
    std::ranges::copy(text, bytes_.begin());
  }
  ~BytesAtAnEnd() { munmap(mapping_.data(), mapping_.size()); }
  BytesAtAnEnd(const BytesAtAnEnd&) = delete;
  BytesAtAnEnd& operator=(const BytesAtAnEnd&) = delete;

  // Only while this lives.
  [[nodiscard]] Data data() const { return {std::shared_ptr<const void>(), bytes_}; }

 private:
  std::span<std::uint8_t> mapping_;
  std::span<std::uint8_t> bytes_;
};

TEST(JSONReaderTest, ReadsNothingBehindTheText) {
  for (const std::string_view text : {"1",         "-",      "1e",    "12345678901234567890",
                                      "t",         "true",   "n",     "\"",
                                      "\"a\"",     "\"\\",   "\"\\u", "[",
                                      "[1",        "[t",     "[\"",   "[]",
                                      "{\"a\":1}", "{\"a\"", "[1.",   " "}) {
    const BytesAtAnEnd bytes(text);
    EXPECT_EQ(kvl::valueFromJSON(bytes.data(), nullptr),
              kvl::valueFromJSON(Data::fromText(text), nullptr))
        << text;
  }
}

TEST(JSONReaderTest, KeysAreFoundToBeEqualWhateverTheyAre) {
  for (char key = ' '; key <= '~'; ++key) {
    if (key == '"' || key == '\\') continue;
    for (const auto& name : {std::string(1, key), std::string(2, key), "x" + std::string(1, key)}) {
      const auto text = kvltest::joined({R"({")", name, R"(":1,")", name, R"(":2})"});
      const auto value = read(text);
      ASSERT_TRUE(value) << name;
      EXPECT_EQ(value->dictionary(), (kvl::Dictionary{{name, 2}})) << name;
      EXPECT_EQ(value->dictionary()->size(), 1U) << name;
    }
  }
}

TEST(JSONReaderTest, OfEqualKeysTheLastValueCountsInTheFirstPlace) {
  const auto value = read(R"({"a":1,"b":2,"a":3,"c":4,"b":5})");
  EXPECT_EQ(value->description(), "{a = 3; b = 5; c = 4}");
  EXPECT_EQ(value->dictionary()->size(), 3U);
  EXPECT_EQ(read(R"({"a":1,"\u0061":2,"":3,"":4})")->description(), "{a = 2; \"\" = 4}");
}

TEST(JSONReaderTest, OfEqualKeysTheLastValueCountsInLargeDictionariesToo) {
  for (const int keys : {15, 16, 17, 18, 1000}) {
    std::string text = "{";
    for (int i = 0; i < 3 * keys; ++i) {
      text += (i > 0 ? ",\"" : "\"") + std::to_string(i % keys) + "\":" + std::to_string(i);
    }
    const Dictionary dictionary = *read(text + "}")->dictionary();
    ASSERT_EQ(dictionary.size(), static_cast<std::size_t>(keys));
    for (int i = 0; i < keys; ++i) {
      EXPECT_EQ(dictionary.begin()[i].first, std::to_string(i));
      EXPECT_EQ(dictionary[std::to_string(i)].integer(), 2 * keys + i);
    }
  }
}

TEST(JSONReaderTest, ReadsTextsLargerThanItsMemoryAgainAndAgain) {
  for (const std::size_t count : {1U, 3000U, 700'000U, 10U}) {
    const auto value = read("[" + repeated("[1],", count) + "2]");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->array()->size(), count + 1);
  }
}

// How many values a text may hold at least, by trying.
std::size_t cellsOf(std::string_view text) {
  std::size_t cells = 0;
  while (!kvl::valueFromJSON(Data::fromText(text), nullptr, cells)) ++cells;
  return cells;
}

TEST(JSONReaderTest, KeysElementsAndContainersCountAsOneValueEach) {
  EXPECT_EQ(cellsOf("1"), 1U);
  EXPECT_EQ(cellsOf("\"[,:\""), 1U);
  EXPECT_EQ(cellsOf("[]"), 1U);
  EXPECT_EQ(cellsOf("[1, \"a\", null]"), 4U);
  EXPECT_EQ(cellsOf("[[], {}, [[]]]"), 5U);
  EXPECT_EQ(cellsOf(R"({"a": 1, "b": {"c": []}})"), 7U);
}

TEST(JSONReaderTest, MoreValuesThanAllowedAreAnErrorBeforeAnyIsMade) {
  std::optional<Error> error;
  EXPECT_FALSE(kvl::valueFromJSON(Data::fromText("[1,2]"), &error, 2));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
  EXPECT_EQ(error->userInfo()[kvl::NSDebugDescriptionErrorKey].string(),
            "the document holds more than 2 values");
  EXPECT_TRUE(kvl::valueFromJSON(Data::fromText("[1,2]"), &error, 3));
  EXPECT_FALSE(error);
}

}  // namespace
