#include <local/platform/Value.h>

#include <gtest/gtest.h>

#include <cmath>
#include <concepts>
#include <limits>
#include <memory>
#include <thread>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Date;
using kvl::Dictionary;
using kvl::Value;
using Kind = Value::Kind;

static_assert(sizeof(Value) == 16);

class Thing final : public kvl::Object {
 public:
  [[nodiscard]] std::string_view typeName() const noexcept override { return "Thing"; }
};

// Objects of classes that derive from `Object` become values by themselves, no others.
class NoThing;
static_assert(std::convertible_to<std::shared_ptr<Thing>, Value>);
static_assert(!std::constructible_from<Value, std::shared_ptr<const Thing>>);
static_assert(!std::constructible_from<Value, std::shared_ptr<NoThing>>);
static_assert(!std::constructible_from<Value, std::shared_ptr<int>>);

TEST(ValueTest, HoldsObjectsOfAnyClassThatDerivesFromObject) {
  const auto thing = std::make_shared<Thing>();
  const Dictionary holder{{"thing", thing}, {"list", Array{thing, std::make_shared<Thing>()}}};
  EXPECT_EQ(holder["thing"].kind(), Kind::object);
  EXPECT_EQ(holder["thing"].object(), thing);
  EXPECT_EQ((*holder["list"].array())[0].object(), thing);
  EXPECT_EQ(holder["thing"].typeName(), "Thing");
  EXPECT_TRUE(Value(std::shared_ptr<Thing>()).isNull());
}

TEST(ValueTest, KnowsItsKind) {
  const std::pair<Value, Kind> table[] = {
      {Value(), Kind::null},
      {nullptr, Kind::null},
      {true, Kind::boolean},
      {1, Kind::integer},
      {std::uint8_t{1}, Kind::integer},
      {1.5, Kind::real},
      {Date(0), Kind::date},
      {"text", Kind::string},
      {std::string("s"), Kind::string},
      {Data(), Kind::data},
      {Array(), Kind::array},
      {Dictionary(), Kind::dictionary},
  };
  for (const auto& [value, kind] : table) EXPECT_EQ(value.kind(), kind) << value.description();
}

TEST(ValueTest, NeverConvertsBetweenKinds) {
  EXPECT_EQ(Value("42").integer(), std::nullopt);
  EXPECT_EQ(Value(42).string(), std::nullopt);
  EXPECT_EQ(Value(42).date(), std::nullopt);
  EXPECT_EQ(Value().boolean(), std::nullopt);
  EXPECT_EQ(Value("a").data(), std::nullopt);
  EXPECT_EQ(Value(Data()).string(), std::nullopt);
  EXPECT_EQ(Value(Array()).dictionary(), std::nullopt);
  EXPECT_EQ(Value(Dictionary()).array(), std::nullopt);
}

TEST(ValueTest, ReadsNumbersOfEveryKindAsNumbers) {
  EXPECT_EQ(Value(true).integer(), 1);
  EXPECT_EQ(Value(2).boolean(), true);
  EXPECT_EQ(Value(0.0).boolean(), false);
  EXPECT_EQ(Value(0.5).boolean(), true);
  EXPECT_EQ(Value(1.9).integer(), 1);
  EXPECT_EQ(Value(-1.9).integer(), -1);
  EXPECT_EQ(Value(3).real(), 3.0);
}

TEST(ValueTest, ClampsRealsBeyondTheIntegerRange) {
  EXPECT_EQ(Value(1e300).integer(), INT64_MAX);
  EXPECT_EQ(Value(-1e300).integer(), INT64_MIN);
  EXPECT_EQ(Value(std::nan("")).integer(), 0);
  EXPECT_EQ(Value(9223372036854775808.0).integer(), INT64_MAX);
}

TEST(ValueTest, KeepsIntegersOf64BitsWhole) {
  EXPECT_EQ(Value(INT64_MAX).integer(), INT64_MAX);
  EXPECT_EQ(Value(INT64_MIN).integer(), INT64_MIN);
  EXPECT_EQ(Value(std::uint64_t{1} << 63).kind(), Kind::real);
  EXPECT_EQ(Value(std::uint64_t{1} << 63).real(), 9223372036854775808.0);
}

TEST(ValueTest, CopiesShareTheStoredObject) {
  const Value text("shared");
  const Value copy = text;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_TRUE(copy.isSameObject(text));
  EXPECT_EQ(copy.string()->data(), text.string()->data());
  EXPECT_FALSE(Value("shared").isSameObject(text));
  EXPECT_EQ(Value("shared"), text);
}

TEST(ValueTest, AccessorsReturnTheStoredObject) {
  const Dictionary inner{{"a", 1}};
  const Dictionary outer{{"inner", inner}, {"list", Array{1, 2}}};
  EXPECT_TRUE(Value(*outer["inner"].dictionary()).isSameObject(Value(inner)));
  EXPECT_TRUE(Value(*outer["list"].array()).isSameObject(outer["list"]));
}

TEST(ValueTest, ComparesByContentAndKind) {
  EXPECT_EQ(Value(Array{1, "a"}), Value(Array{1, "a"}));
  EXPECT_FALSE(Value(Array{1}) == Value(Array{1, 2}));
  EXPECT_FALSE(Value(1) == Value(1.0));
  EXPECT_FALSE(Value(true) == Value(1));
  EXPECT_EQ(Value(Dictionary{{"a", 1}, {"b", 2}}), Value(Dictionary{{"b", 2}, {"a", 1}}));
  EXPECT_FALSE(Value(Dictionary{{"a", 1}}) == Value(Dictionary{{"a", 2}}));
}

TEST(ValueTest, DiffersFromEveryOtherContentOfItsKind) {
  const auto object = std::make_shared<Thing>();
  const std::vector<Value> values{
      nullptr,
      true,
      false,
      1,
      2,
      1.5,
      2.5,
      Date(1),
      Date(2),
      "",
      "a",
      "b",
      "ab",
      Data(),
      Data::fromText("a"),
      Data::fromText("b"),
      Value(object),
      Value(std::make_shared<Thing>()),
      Array{},
      Array{1},
      Array{2},
      Array{1, 2},
      Array{2, 1},
      Dictionary{},
      Dictionary{{"a", 1}},
      Dictionary{{"a", 2}},
      Dictionary{{"b", 1}},
      Dictionary{{"a", 1}, {"b", 2}},
      Dictionary{{"a", 1}, {"c", 2}},
  };
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) {
      EXPECT_EQ(values[i] == values[j], i == j)
          << values[i].description() << " and " << values[j].description();
    }
  }
}

TEST(ValueTest, WhatIsNoNumberReadsAsNone) {
  for (const Value& value : {Value(), Value("1"), Value(Date(1)), Value(Data::fromText("1")),
                             Value(Array{1}), Value(Dictionary{{"a", 1}})}) {
    EXPECT_EQ(value.boolean(), std::nullopt) << value.description();
    EXPECT_EQ(value.integer(), std::nullopt) << value.description();
    EXPECT_EQ(value.real(), std::nullopt) << value.description();
  }
}

TEST(ValueTest, DescribesRealsWithAnExponentOnlyBeyondManyZeros) {
  const std::pair<double, std::string_view> rows[] = {
      {0.0, "0"},
      {-0.5, "-0.5"},
      {0.0001, "0.0001"},
      {0.00005, "5e-05"},
      {1e15, "1000000000000000"},
      {1e16, "1e+16"},
      {-1e17, "-1e+17"},
      {1234.5, "1234.5"},
  };
  for (const auto& [real, text] : rows) EXPECT_EQ(Value(real).description(), text);
}

TEST(ValueTest, MovedFromValuesAreNull) {
  Value from("text");
  const Value to = std::move(from);
  EXPECT_TRUE(from.isNull());  // NOLINT(bugprone-use-after-move): that is the contract
  EXPECT_EQ(to.string(), "text");
}

TEST(ValueTest, SelfAssignmentKeepsTheValue) {
  Value value("text");
  const Value& alias = value;
  value = alias;
  EXPECT_EQ(value.string(), "text");
}

TEST(DictionaryTest, KeepsTheOrderInWhichKeysWereSet) {
  Dictionary dictionary{{"z", 1}, {"a", 2}};
  dictionary.set("m", 3);
  dictionary.set("z", 4);
  std::string keys;
  for (const auto& [key, value] : dictionary) keys += key;
  EXPECT_EQ(keys, "zam");
  EXPECT_EQ(dictionary["z"].integer(), 4);
}

TEST(DictionaryTest, TellsAStoredNullFromAnAbsentKey) {
  const Dictionary dictionary{{"null", nullptr}};
  EXPECT_TRUE(dictionary.contains("null"));
  EXPECT_FALSE(dictionary.contains("absent"));
  EXPECT_TRUE(dictionary["null"].isNull());
  EXPECT_TRUE(dictionary["absent"].isNull());
}

TEST(DictionaryTest, ChangingACopyNeverChangesTheOther) {
  const Dictionary original{{"a", 1}};
  Dictionary copy = original;
  copy.set("b", 2);
  copy.remove("a");
  EXPECT_EQ(original, (Dictionary{{"a", 1}}));
  EXPECT_EQ(copy, (Dictionary{{"b", 2}}));
}

TEST(DictionaryTest, FindsEveryKeyOnBothSidesOfTheIndexedSize) {
  Dictionary dictionary;
  for (int i = 0; i < 100; ++i) dictionary.set("key" + std::to_string(i), i);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(dictionary["key" + std::to_string(i)].integer(), i);
  }
  for (int i = 0; i < 90; ++i) dictionary.remove("key" + std::to_string(i));
  EXPECT_EQ(dictionary.size(), 10U);
  EXPECT_EQ(dictionary["key95"].integer(), 95);
  EXPECT_FALSE(dictionary.contains("key10"));
  dictionary.remove("nothing");
  EXPECT_EQ(dictionary.size(), 10U);
}

TEST(DictionaryTest, StaysUsableAfterAMove) {
  Dictionary from{{"a", 1}};
  const Dictionary to = std::move(from);  // NOLINT(performance-move-const-arg)
  from.set("b", 2);                       // NOLINT(bugprone-use-after-move): that is the contract
  EXPECT_EQ(to, (Dictionary{{"a", 1}}));
  Array list{1};
  const Array other = std::move(list);  // NOLINT(performance-move-const-arg)
  list.append(2);                       // NOLINT(bugprone-use-after-move): that is the contract
  EXPECT_EQ(other, (Array{1}));
  kvl::Number number(7);
  const kvl::Number copy = std::move(number);  // NOLINT(performance-move-const-arg)
  EXPECT_EQ(number.integer(), 7);              // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(copy.integer(), 7);
}

TEST(ArrayTest, ChangingACopyNeverChangesTheOther) {
  const Array original{1};
  Array copy = original;
  copy.append(2);
  EXPECT_EQ(original.size(), 1U);
  EXPECT_EQ(copy, (Array{1, 2}));
}

TEST(ValueTest, DescribesItselfInOneLine) {
  const Dictionary dictionary{{"name", "a b"},
                              {"list", Array{1, true, 1.5, nullptr}},
                              {"data", Data::fromText("abc")},
                              {"date", Date(0)},
                              {"odd key", "quo\"te"}};
  EXPECT_EQ(dictionary.description(),
            "{name = \"a b\"; list = (1, true, 1.5, <null>); data = <3 bytes>; date = 2001-01-01 "
            "00:00:00 +0000; \"odd key\" = \"quo\\\"te\"}");
  EXPECT_EQ(Value("plain text").description(), "plain text");
}

TEST(ValueTest, ManyThreadsMayShareOneDocument) {
  const Value document(Dictionary{{"list", Array{"a", "b"}}});
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([document] {
      for (int round = 0; round < 1000; ++round) {
        const Value copy = document;  // NOLINT(performance-unnecessary-copy-initialization)
        ASSERT_EQ((*(*copy.dictionary())["list"].array())[1].string(), "b");
      }
    });
  }
}

}  // namespace
