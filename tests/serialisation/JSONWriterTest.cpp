#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Date;
using kvl::Dictionary;
using kvl::Error;
using kvl::Value;
using namespace std::string_view_literals;

std::string written(const Value& value) {
  std::optional<Error> error;
  const auto text = kvl::JSONFromValue(value, &error);
  EXPECT_EQ(error, std::nullopt);
  return text ? std::string(text->text()) : "nothing";
}

class HostObject final : public kvl::Object {
  [[nodiscard]] std::string_view typeName() const noexcept override { return "Thing"; }
};

Value nested(std::size_t depth) {
  Value value = Array();
  for (std::size_t i = 1; i < depth; ++i)
    value = i % 2 == 0 ? Value(Array{value}) : Value(Dictionary{{"a", value}});
  return value;
}

struct Refused {
  Value value;
  std::string_view problem;
};

std::vector<Refused> refusedValues() {
  constexpr std::string_view kinds = "a value is of a kind that JSON does not have";
  constexpr std::string_view top = "only an array or a dictionary can be a document";
  const Value thing(std::make_shared<HostObject>());
  return {
      {Value(), top},
      {true, top},
      {1, top},
      {1.5, top},
      {"text", top},
      {Date(0), top},
      {Data(), top},
      {thing, top},
      {Array{Date(0)}, kinds},
      {Array{Data()}, kinds},
      {Array{thing}, kinds},
      {Dictionary{{"a", Array{1, Date(0)}}}, kinds},
      {Array{std::nan("")}, "a number is not finite"},
      {Array{std::numeric_limits<double>::infinity()}, "a number is not finite"},
      {Dictionary{{"a", -std::numeric_limits<double>::infinity()}}, "a number is not finite"},
      {Array{"\xFF"}, "a string is not UTF-8"},
      {Array{"\xC3"}, "a string is not UTF-8"},
      {Array{"\xC3", "\xA9"}, "a string is not UTF-8"},
      {Dictionary{{"\xED\xA0\x80", 1}}, "a string is not UTF-8"},
      {nested(kvl::kMaximumJSONDepth + 1), "containers are nested too deeply"},
      {nested(1'000'000), "containers are nested too deeply"},
  };
}

TEST(JSONWriterTest, WritesCompactTextInTheOrderOfTheDictionary) {
  const Dictionary dictionary{{"z", 1},
                              {"a", Array{true, false, nullptr}},
                              {"m", Dictionary{{"x", "y"}}},
                              {"e", Array()},
                              {"d", Dictionary()}};
  EXPECT_EQ(written(dictionary), R"({"z":1,"a":[true,false,null],"m":{"x":"y"},"e":[],"d":{}})");
}

TEST(JSONWriterTest, WritesIntegersWhole) {
  EXPECT_EQ(written(Array{0, -1, INT64_MAX, INT64_MIN}),
            "[0,-1,9223372036854775807,-9223372036854775808]");
}

TEST(JSONWriterTest, RealsAreShortAndStayReals) {
  const std::pair<double, std::string_view> table[] = {
      {1.0, "1.0"},
      {-0.0, "-0.0"},
      {0.1, "0.1"},
      {100.0, "100.0"},
      {1e23, "1e+23"},
      {5e-324, "5e-324"},
      {0.30000000000000004, "0.30000000000000004"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      {9007199254740993.0, "9007199254740992.0"},
  };
  for (const auto& [real, text] : table) {
    EXPECT_EQ(written(Array{real}), "[" + std::string(text) + "]");
    EXPECT_EQ(kvl::valueFromJSON(Data::fromText(text), nullptr), Value(real)) << text;
  }
}

TEST(JSONWriterTest, EscapesWhatMustBeEscapedAndNothingElse) {
  EXPECT_EQ(written(Array{"\"\\/\b\f\n\r\t"}), R"(["\"\\/\b\f\n\r\t"])");
  EXPECT_EQ(written(Array{std::string_view("\0\x01\x1f\x7f", 4)}),
            "[\"\\u0000\\u0001\\u001f\x7f\"]");
  EXPECT_EQ(written(Array{"é日本😀"}), "[\"é日本😀\"]");
  EXPECT_EQ(written(Dictionary{{"a\"b\n", 1}}), R"({"a\"b\n":1})");
}

// Text is copied several characters at a time.
TEST(JSONWriterTest, FindsWhatMustBeEscapedAnywhere) {
  for (const char special : {'"', '\\', '\n', '\x1f', '\0'}) {
    for (std::size_t size = 1; size < 40; ++size) {
      for (std::size_t position = 0; position < size; ++position) {
        std::string text(size, position % 2 == 0 ? 'a' : '\x80');
        for (std::size_t i = 0; i + 1 < size; i += 2) text.replace(i, 2, "é");
        if (position % 2 == 0 && position + 1 < size) text[position + 1] = 'b';
        if (position % 2 == 1) text[position - 1] = 'b';
        text[position] = special;
        if (size % 2 == 1 && position != size - 1) text[size - 1] = 'c';
        const auto read = kvl::valueFromJSON(*kvl::JSONFromValue(Array{text}, nullptr), nullptr);
        ASSERT_EQ(read, Value(Array{text}));
      }
    }
  }
}

TEST(JSONWriterTest, WritesTextsOfManyEscapesWhole) {
  std::string text;
  for (std::size_t i = 0; i < 2000; ++i) {
    text.append(i % 37, 'a');
    text += "\"\\\n\x01\u00e9"sv[i % 6];
    if (i % 6 == 4) text += '\xa9';
    if (i % 6 == 5) text.back() = 'b';
  }
  const Value value(Array{text, Dictionary{{text, text}}});
  EXPECT_EQ(kvl::valueFromJSON(*kvl::JSONFromValue(value, nullptr), nullptr), value);
}

TEST(JSONWriterTest, IsValidByTheRuleOfJSONObjects) {
  const std::initializer_list<Value> valid = {
      Array(),
      Dictionary(),
      Array{nullptr, true, 1, 1.5, "é", Array(), Dictionary()},
      Dictionary{{"", Dictionary{{"\n", nullptr}}}},
      nested(kvl::kMaximumJSONDepth),
  };
  for (const Value& value : valid) {
    EXPECT_TRUE(kvl::isValidJSONObject(value));
    EXPECT_TRUE(kvl::JSONFromValue(value, nullptr));
  }
  for (const auto& [value, problem] : refusedValues()) EXPECT_FALSE(kvl::isValidJSONObject(value));
}

TEST(JSONWriterTest, AnErrorSaysWhyAValueCannotBeWritten) {
  for (const auto& [value, problem] : refusedValues()) {
    std::optional<Error> error;
    EXPECT_EQ(kvl::JSONFromValue(value, &error), std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListWriteInvalidError));
    EXPECT_EQ(error->code(), 3851);
    EXPECT_EQ(error->userInfo()[kvl::NSDebugDescriptionErrorKey].string(), problem);
  }
}

TEST(JSONWriterTest, AValueThatMayNotBeJSONIsWrittenOrNoneWithoutAnError) {
  for (const auto& [value, problem] : refusedValues()) {
    std::optional<Error> error = Error("before", 1);
    EXPECT_EQ(kvl::JSONIfValid(value, &error), std::nullopt);
    EXPECT_EQ(error, std::nullopt) << problem;
  }
  std::optional<Error> error = Error("before", 1);
  EXPECT_EQ(kvl::JSONIfValid(Array{1, "a"}, &error), Data::fromText(R"([1,"a"])"));
  EXPECT_EQ(error, std::nullopt);
}

TEST(JSONWriterTest, WhatItWritesToTheDepthLimitCanBeRead) {
  const Value value = nested(kvl::kMaximumJSONDepth);
  EXPECT_EQ(kvl::valueFromJSON(*kvl::JSONFromValue(value, nullptr), nullptr), value);
}

TEST(JSONWriterTest, WritesLargeDocuments) {
  Array array;
  for (int i = 0; i < 200'000; ++i) array.append("text number " + std::to_string(i));
  const auto text = kvl::JSONFromValue(array, nullptr);
  ASSERT_TRUE(text);
  EXPECT_EQ(kvl::valueFromJSON(*text, nullptr), Value(array));
}

TEST(JSONWriterTest, ADocumentThatWasReadIsWrittenAsItWas) {
  const std::string text = R"({"b":[1,2.5,"x",null,{"é":true}],"a":{},"c":[]})";
  EXPECT_EQ(written(*kvl::valueFromJSON(Data::fromText(text), nullptr)), text);
}

}  // namespace
