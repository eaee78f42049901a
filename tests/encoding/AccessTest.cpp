// The typed accessors, edge by edge; AccessTableTest.cpp has every accessor on every kind of value.
#include "tests/support/LogCapture.h"

#include <local/KVLEncoding.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Array;
using kvl::Date;
using kvl::Dictionary;
using kvl::Number;
using kvl::Rect;
using kvl::Value;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Rect kFallback{.x = -1, .y = -2, .width = -3, .height = -4};
const Dictionary kFrame{{"frameX", 10}, {"frameY", 20}, {"frameWidth", 300}, {"frameHeight", 40}};

class AccessTest : public testing::Test {
 protected:
  kvltest::LogCapture log_;
};

TEST_F(AccessTest, ExistsForEveryValueButNull) {
  const Dictionary dictionary{
      {"null", nullptr}, {"no", false}, {"zero", 0}, {"empty", ""}, {"list", Array()}};
  for (const char* key : {"no", "zero", "empty", "list"}) {
    EXPECT_TRUE(KVLEncoding::existsInDictionary(dictionary, key)) << key;
  }
  EXPECT_FALSE(KVLEncoding::existsInDictionary(dictionary, "null"));
  EXPECT_FALSE(KVLEncoding::existsInDictionary(dictionary, "absent"));
  EXPECT_FALSE(KVLEncoding::existsInDictionary(std::nullopt, "no"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, TheDiagnosticNamesTheKeyAndTheWholeDictionary) {
  const Dictionary dictionary{{"count", "42"}, {"other", 1}};
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "count", 7), 7);
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect count as integer in dictionary " + dictionary.description()));
}

TEST_F(AccessTest, ReturnsTheStoredObjectItself) {
  const Dictionary dictionary{
      {"text", "words"}, {"list", Array{1}}, {"inner", Dictionary{{"a", 1}}}, {"number", 2}};
  EXPECT_TRUE(Value(*KVLEncoding::stringFromDictionary(dictionary, "text"))
                  .isSameObject(dictionary["text"]));
  EXPECT_TRUE(Value(*KVLEncoding::arrayFromDictionary(dictionary, "list"))
                  .isSameObject(dictionary["list"]));
  EXPECT_TRUE(Value(*KVLEncoding::dictionaryFromDictionary(dictionary, "inner"))
                  .isSameObject(dictionary["inner"]));
  EXPECT_TRUE(Value(*KVLEncoding::optionalBoolFromDictionary(dictionary, "number"))
                  .isSameObject(dictionary["number"]));
}

TEST_F(AccessTest, ReturnsTheFallbackObjectItself) {
  const kvl::String text("fallback");
  const auto result = KVLEncoding::stringFromDictionary(Dictionary(), "absent", text);
  ASSERT_TRUE(result);
  EXPECT_TRUE(Value(*result).isSameObject(Value(text)));
}

TEST_F(AccessTest, OptionalBooleansStayTheNumbersThatTheyAre) {
  const Dictionary dictionary{{"two", 2}, {"half", 0.5}, {"yes", true}};
  EXPECT_EQ(KVLEncoding::optionalBoolFromDictionary(dictionary, "two"), Number(2));
  EXPECT_EQ(KVLEncoding::optionalBoolFromDictionary(dictionary, "half"), Number(0.5));
  EXPECT_EQ(KVLEncoding::optionalBoolFromDictionary(dictionary, "yes"), Number(true));
  EXPECT_EQ(KVLEncoding::optionalBoolFromDictionary(dictionary, "absent"), std::nullopt);
}

TEST_F(AccessTest, BooleansAreTrueForEveryNumberButZero) {
  const Dictionary dictionary{{"minus", -1}, {"tiny", 1e-300}, {"zero", 0.0}, {"no", false}};
  EXPECT_TRUE(KVLEncoding::boolFromDictionary(dictionary, "minus", false));
  EXPECT_TRUE(KVLEncoding::boolFromDictionary(dictionary, "tiny", false));
  EXPECT_FALSE(KVLEncoding::boolFromDictionary(dictionary, "zero", true));
  EXPECT_FALSE(KVLEncoding::boolFromDictionary(dictionary, "no", true));
}

TEST_F(AccessTest, IntegersAreTruncatedTowardZeroAndClamped) {
  const Dictionary dictionary{{"up", 1.9},   {"down", -1.9}, {"large", 1e300},
                              {"yes", true}, {"no", false},  {"least", INT64_MIN}};
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "up", 0), 1);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "down", 0), -1);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "large", 0), INT64_MAX);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "yes", 7), 1);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "no", 7), 0);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(dictionary, "least", 0), INT64_MIN);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, RectanglesAreReadFromFourKeys) {
  EXPECT_EQ(KVLEncoding::rectFromDictionary(kFrame, "frame", kFallback),
            (Rect{.x = 10, .y = 20, .width = 300, .height = 40}));
  const Dictionary bare{{"X", 1}, {"Y", 2}, {"Width", 3}, {"Height", 4}};
  EXPECT_EQ(KVLEncoding::rectFromDictionary(bare, "", kFallback),
            (Rect{.x = 1, .y = 2, .width = 3, .height = 4}));
  EXPECT_EQ(KVLEncoding::rectFromDictionary(std::nullopt, "frame", kFallback), kFallback);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, ARectangleWithoutOneOfItsKeysIsTheFallbackWhole) {
  for (const char* missing : {"frameX", "frameY", "frameWidth", "frameHeight"}) {
    Dictionary dictionary = kFrame;
    dictionary.remove(missing);
    EXPECT_EQ(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback), kFallback)
        << missing;
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, ARectanglesNullComponentIsZeroWithoutALine) {
  Dictionary dictionary = kFrame;
  dictionary.set("frameHeight", nullptr);
  EXPECT_EQ(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback),
            (Rect{.x = 10, .y = 20, .width = 300, .height = 0}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, ARectanglesComponentOfAnotherTypeIsZeroWithALine) {
  Dictionary dictionary = kFrame;
  dictionary.set("frameY", "20");
  EXPECT_EQ(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback),
            (Rect{.x = 10, .y = 0, .width = 300, .height = 40}));
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect frameY as integer in dictionary " + dictionary.description()));
}

// The components before the missing one are read, and reported, in their order.
TEST_F(AccessTest, ARectangleIsReadComponentByComponent) {
  const Dictionary dictionary{{"frameY", "b"}, {"frameX", "a"}, {"frameHeight", "d"}};
  EXPECT_EQ(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback), kFallback);
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect frameX as integer in dictionary " + dictionary.description(),
                          "expect frameY as integer in dictionary " + dictionary.description()));
}

TEST_F(AccessTest, ARectanglesComponentsAreIntegers) {
  const Dictionary dictionary{
      {"frameX", 1.9}, {"frameY", -1.9}, {"frameWidth", true}, {"frameHeight", 1e300}};
  EXPECT_EQ(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback),
            (Rect{.x = 1, .y = -1, .width = 1, .height = 9223372036854775808.0}));
}

TEST_F(AccessTest, DatesAreReadFromDatesAndFromText) {
  const Dictionary dictionary{{"date", Date(5.5)},
                              {"whole", "2024-05-01T12:34:56Z"},
                              {"nano", "2024-05-01T12:34:56.123456789Z"},
                              {"offset", "2024-05-01T14:34:56+02:00"}};
  const Date whole(736259696);
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "date"), Date(5.5));
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "whole"), whole);
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "nano"), whole.adding(0.123456789));
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "offset"), whole);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AccessTest, TextThatIsNoDateIsReportedUnlessItIsEmpty) {
  const Dictionary dictionary{{"day", "2024-05-01"}, {"empty", ""}};
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "empty", Date(1)), Date(1));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "day", Date(1)), Date(1));
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect day as RFC3339 date in dictionary " + dictionary.description()));
}

TEST_F(AccessTest, NumbersAreNoDates) {
  const Dictionary dictionary{{"epoch", 1714566896}};
  EXPECT_EQ(KVLEncoding::dateFromDictionary(dictionary, "epoch"), std::nullopt);
  EXPECT_THAT(log_.lines(),
              ElementsAre("expect epoch as date in dictionary " + dictionary.description()));
}

TEST_F(AccessTest, AnOptionalDictionaryIsReadOrNone) {
  const std::optional<Dictionary> none;
  const std::optional<Dictionary> some = Dictionary{{"a", 1}};
  EXPECT_EQ(KVLEncoding::integerFromDictionary(none, "a", 7), 7);
  EXPECT_EQ(KVLEncoding::integerFromDictionary(some, "a", 7), 1);
}

TEST_F(AccessTest, TheDictionaryIsNeverChanged) {
  const Dictionary dictionary{{"text", "a"}, {"null", nullptr}};
  const Dictionary before{{"text", "a"}, {"null", nullptr}};
  static_cast<void>(KVLEncoding::arrayFromDictionary(dictionary, "text"));
  static_cast<void>(KVLEncoding::rectFromDictionary(dictionary, "frame", kFallback));
  EXPECT_EQ(dictionary, before);
}

TEST_F(AccessTest, ManyThreadsMayReadOneDictionary) {
  const Dictionary dictionary{{"n", 1}, {"day", "2024-05-01T12:34:56Z"}, {"wrong", Array()}};
  constexpr int kRounds = 200;
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&dictionary] {
      for (int round = 0; round < kRounds; ++round) {
        ASSERT_EQ(KVLEncoding::integerFromDictionary(dictionary, "n", 0), 1);
        ASSERT_EQ(KVLEncoding::dateFromDictionary(dictionary, "day"), Date(736259696));
        ASSERT_EQ(KVLEncoding::integerFromDictionary(dictionary, "wrong", 7), 7);
      }
    });
  }
  threads.clear();
  EXPECT_EQ(log_.lines().size(), 4U * kRounds);
}

TEST(EncodingErrorDomainTest, IsAVariableThatAHostMaySet) {
  EXPECT_EQ(KVLEncoding::KVLEncodingErrorDomain, "korvale.vandrel.local.encoding");
  const auto before = std::exchange(KVLEncoding::KVLEncodingErrorDomain, "another");
  EXPECT_EQ(KVLEncoding::KVLEncodingErrorDomain, "another");
  KVLEncoding::KVLEncodingErrorDomain = before;
}

}  // namespace
