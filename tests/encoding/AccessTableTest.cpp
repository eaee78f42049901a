// Every accessor on every kind of stored value, on an absent one and on no dictionary: its result
// and its log lines.
#include "tests/support/LogCapture.h"

#include <local/KVLEncoding.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Date;
using kvl::Dictionary;
using kvl::Value;
using KVLEncoding::DictionaryOrNone;

constexpr std::string_view kKey = "key";

class Thing final : public kvl::Object {
 public:
  [[nodiscard]] std::string_view typeName() const noexcept override { return "Thing"; }
};

// What may be stored under the key, by name.
const std::map<std::string, Value>& storedValues() {
  static const std::map<std::string, Value> values{
      {"null", nullptr},
      {"boolean", true},
      {"integer", 42},
      {"real", -1.9},
      {"date", Date(5)},
      {"string", "words"},
      {"data", Data::fromText("bytes")},
      {"array", Array{1, 2}},
      {"dictionary", Dictionary{{"a", 1}}},
      {"object", Value(std::make_shared<Thing>())},
  };
  return values;
}

template <class T>
Value valueOf(const std::optional<T>& object) {
  return object ? Value(*object) : Value();
}

struct Accessor {
  std::string name;
  // The result as a value; null for none.
  std::function<Value(DictionaryOrNone)> read;
  Value fallback;
  // The results for the kinds that it accepts; all others but null give the fallback and a line.
  std::map<std::string, Value> accepted;
  std::string_view diagnostic;
};

const kvl::String kText("fallback");
const kvl::Number kNumber(7);
const Dictionary kDictionary{{"fallback", 1}};
const Array kArray{"fallback"};

const Value& stored(const std::string& kind) {
  return storedValues().at(kind);
}

std::vector<Accessor> objectAccessors() {
  return {
      {.name = "string",
       .read = [](auto d) { return valueOf(KVLEncoding::stringFromDictionary(d, kKey, kText)); },
       .fallback = kText,
       .accepted = {{"string", stored("string")}},
       .diagnostic = "expect %@ as string in dictionary %@"},
      {.name = "optional boolean",
       .read =
           [](auto d) {
             return valueOf(KVLEncoding::optionalBoolFromDictionary(d, kKey, kNumber));
           },
       .fallback = kNumber,
       .accepted = {{"boolean", true}, {"integer", 42}, {"real", -1.9}},
       .diagnostic = "expect %@ as boolean in dictionary %@"},
      {.name = "dictionary",
       .read =
           [](auto d) {
             return valueOf(KVLEncoding::dictionaryFromDictionary(d, kKey, kDictionary));
           },
       .fallback = kDictionary,
       .accepted = {{"dictionary", stored("dictionary")}},
       .diagnostic = "expect %@ as dictionary in dictionary %@"},
      {.name = "array",
       .read = [](auto d) { return valueOf(KVLEncoding::arrayFromDictionary(d, kKey, kArray)); },
       .fallback = kArray,
       .accepted = {{"array", stored("array")}},
       .diagnostic = "expect %@ as array in dictionary %@"},
  };
}

std::vector<Accessor> objectAccessorsWithoutFallback() {
  auto accessors = objectAccessors();
  accessors[0].read = [](auto d) { return valueOf(KVLEncoding::stringFromDictionary(d, kKey)); };
  accessors[1].read = [](auto d) {
    return valueOf(KVLEncoding::optionalBoolFromDictionary(d, kKey));
  };
  accessors[2].read = [](auto d) {
    return valueOf(KVLEncoding::dictionaryFromDictionary(d, kKey));
  };
  accessors[3].read = [](auto d) { return valueOf(KVLEncoding::arrayFromDictionary(d, kKey)); };
  for (auto& accessor : accessors) {
    accessor.name += " without fallback";
    accessor.fallback = Value();
  }
  return accessors;
}

std::vector<Accessor> scalarAccessors() {
  return {
      {.name = "boolean",
       .read = [](auto d) { return Value(KVLEncoding::boolFromDictionary(d, kKey, false)); },
       .fallback = false,
       .accepted = {{"boolean", true}, {"integer", true}, {"real", true}},
       .diagnostic = "expect %@ as boolean in dictionary %@"},
      {.name = "integer",
       .read = [](auto d) { return Value(KVLEncoding::integerFromDictionary(d, kKey, 7)); },
       .fallback = 7,
       .accepted = {{"boolean", 1}, {"integer", 42}, {"real", -1}},
       .diagnostic = "expect %@ as integer in dictionary %@"},
      {.name = "date",
       .read = [](auto d) { return valueOf(KVLEncoding::dateFromDictionary(d, kKey, Date(7))); },
       .fallback = Date(7),
       .accepted = {{"date", Date(5)}},
       .diagnostic = "expect %@ as date in dictionary %@"},
      {.name = "date without fallback",
       .read = [](auto d) { return valueOf(KVLEncoding::dateFromDictionary(d, kKey)); },
       .fallback = Value(),
       .accepted = {{"date", Date(5)}},
       .diagnostic = "expect %@ as date in dictionary %@"},
  };
}

std::vector<Accessor> allAccessors() {
  auto accessors = objectAccessors();
  for (const auto& more : {objectAccessorsWithoutFallback(), scalarAccessors()}) {
    accessors.insert(accessors.end(), more.begin(), more.end());
  }
  return accessors;
}

// Text is a date when it has the form of one, and has a line of its own when not.
std::string_view diagnosticFor(const Accessor& accessor, const std::string& kind) {
  const bool textAsDate = accessor.name.starts_with("date") && kind == "string";
  return textAsDate ? "expect %@ as RFC3339 date in dictionary %@" : accessor.diagnostic;
}

class AccessTableTest : public testing::TestWithParam<Accessor> {
 protected:
  kvltest::LogCapture log_;
};

TEST_P(AccessTableTest, ReturnsStoredValuesOfItsTypeAndReportsTheOthers) {
  for (const auto& [kind, value] : storedValues()) {
    SCOPED_TRACE(kind);
    log_.clear();
    const Dictionary dictionary{{"before", 0}, {kKey, value}, {"after", 2}};
    const Value result = GetParam().read(dictionary);
    const auto accepted = GetParam().accepted.find(kind);
    const bool isAccepted = accepted != GetParam().accepted.end();
    const Value& expected = isAccepted ? accepted->second : GetParam().fallback;
    EXPECT_TRUE(result.isSameObject(expected)) << result.description();
    std::vector<std::string> lines;
    if (!isAccepted && kind != "null") {
      lines.push_back(kvl::format(diagnosticFor(GetParam(), kind), kKey, dictionary));
    }
    EXPECT_EQ(log_.lines(), lines);
  }
}

TEST_P(AccessTableTest, ReturnsTheFallbackSilentlyForAnAbsentKeyAndForNoDictionary) {
  const Dictionary other{{"Key", "another key"}, {"key ", 1}};
  const Dictionary empty;
  const std::optional<Dictionary> none;
  for (const DictionaryOrNone dictionary :
       {DictionaryOrNone(empty), DictionaryOrNone(other), DictionaryOrNone(none),
        DictionaryOrNone(std::nullopt)}) {
    EXPECT_TRUE(GetParam().read(dictionary).isSameObject(GetParam().fallback));
  }
  EXPECT_TRUE(log_.lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Accessors, AccessTableTest, testing::ValuesIn(allAccessors()),
                         [](const auto& entry) {
                           std::string name = entry.param.name;
                           std::ranges::replace(name, ' ', '_');
                           return name;
                         });

}  // namespace
