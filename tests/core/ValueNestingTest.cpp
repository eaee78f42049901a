// Values that are nested deeply, and values that keep others alive.
#include <local/platform/Value.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;

constexpr int kDeep = 1'000'000;

// Arrays and dictionaries in turn.
Value nested(int depth, const Value& innermost) {
  Value value = innermost;
  for (int i = 0; i < depth; ++i)
    value = i % 2 == 0 ? Value(Array{value, 1}) : Value(Dictionary{{"key", value}});
  return value;
}

TEST(ValueNestingTest, DestroyingAMillionLevelsTakesNoStack) {
  EXPECT_EQ(nested(kDeep, 1).kind(), Value::Kind::dictionary);
}

TEST(ValueNestingTest, ComparingAMillionLevelsTakesNoStack) {
  const Value value = nested(kDeep, "same");
  EXPECT_EQ(value, nested(kDeep, "same"));
  EXPECT_FALSE(value == nested(kDeep, "other"));
  EXPECT_FALSE(value == nested(kDeep - 2, "same"));
}

TEST(ValueNestingTest, ADescriptionLeavesOutWhatIsNestedDeeply) {
  Value value;
  for (int i = 0; i < 128; ++i) value = Array{value};
  EXPECT_EQ(value.description(), std::string(128, '(') + "<null>" + std::string(128, ')'));
  EXPECT_EQ(Array{value}.description(), std::string(128, '(') + "..." + std::string(128, ')'));
  EXPECT_LT(nested(kDeep, 1).description().size(), 10'000U);
}

TEST(ValueNestingTest, WhatIsSharedOutlivesTheContainerThatGoes) {
  const Value kept = Array{"kept", Dictionary{{"a", "b"}}};
  static_cast<void>(nested(100, kept));
  EXPECT_EQ(kept.description(), "(kept, {a = b})");
  Value inner;
  {
    const Dictionary outer{{"inner", Array{"text"}}};
    inner = outer["inner"];
  }
  EXPECT_EQ(inner, Value(Array{"text"}));
}

TEST(DictionaryTest, AKeyOfTheDictionaryItselfMayBeGivenToChangeIt) {
  Dictionary dictionary{{"a", 1}, {"b", 2}};
  dictionary.set(dictionary.begin()->first, 3);
  dictionary.remove(dictionary.begin()[1].first);
  EXPECT_EQ(dictionary, (Dictionary{{"a", 3}}));
}

TEST(DictionaryTest, HoldsItselfOnlyAsItWas) {
  Dictionary dictionary{{"a", 1}};
  dictionary.set("self", dictionary);
  EXPECT_EQ(dictionary, (Dictionary{{"a", 1}, {"self", Dictionary{{"a", 1}}}}));
  Array array{1};
  array.append(array);
  EXPECT_EQ(array, (Array{1, Array{1}}));
}

TEST(DictionaryTest, KeepsItsOrderWhenALargeOneIsChanged) {
  Dictionary dictionary;
  for (int i = 0; i < 40; ++i) dictionary.set(std::to_string(i), i);
  dictionary.remove("0");
  dictionary.set("20", "new");
  dictionary.set("0", "last");
  EXPECT_EQ(dictionary.begin()->first, "1");
  EXPECT_EQ(dictionary.begin()[19].second, Value("new"));
  EXPECT_EQ(dictionary.begin()[39].first, "0");
  EXPECT_EQ(dictionary["39"], Value(39));
}

}  // namespace
