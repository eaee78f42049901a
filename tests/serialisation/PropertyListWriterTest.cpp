// Binary property lists byte by byte.
#include "platform/serialisation/PropertyListWriter.h"
#include "tests/serialisation/PropertyListReader.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Date;
using kvl::Dictionary;
using kvl::Value;
using namespace std::string_view_literals;

class Thing final : public kvl::Object {
 public:
  [[nodiscard]] std::string_view typeName() const noexcept override { return "Thing"; }
};

std::optional<Data> write(const Value& value) {
  return kvl::binaryPropertyListFromValue(value, nullptr);
}

// The bytes of the objects alone, when there is one object of less than 256 bytes.
std::string objectOf(const Value& value) {
  const auto data = write(value);
  if (!data) return "none";
  EXPECT_EQ(kvltest::valueFromStrictPropertyList(data->bytes()), value);
  const auto text = data->text();
  return std::string(text.substr(8, text.size() - 8 - 1 - 32));
}

void expectToReadBack(const Value& value) {
  const auto data = write(value);
  ASSERT_TRUE(data);
  EXPECT_TRUE(kvltest::valueFromStrictPropertyList(data->bytes()) == value);
}

TEST(PropertyListWriterTest, WritesHeaderObjectOffsetsAndTrailer) {
  const auto data = write(true);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->text(),
            "bplist00"
            "\x09"
            "\x08"
            "\0\0\0\0\0\0\x01\x01"
            "\0\0\0\0\0\0\0\x01"
            "\0\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\x09"sv);
}

TEST(PropertyListWriterTest, WritesADictionaryWithItsKeysFirst) {
  const auto data = write(Dictionary{{"a", 1}, {"b", Array{"a", Date(0)}}});
  ASSERT_TRUE(data);
  EXPECT_EQ(data->text(),
            "bplist00"
            "\xd2\x01\x02\x03\x04"
            "\x51\x61"
            "\x51\x62"
            "\x10\x01"
            "\xa2\x01\x05"
            "\x33\0\0\0\0\0\0\0\0"
            "\x08\x0d\x0f\x11\x13\x16"
            "\0\0\0\0\0\0\x01\x01"
            "\0\0\0\0\0\0\0\x06"
            "\0\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\x1f"sv);
}

TEST(PropertyListWriterTest, WritesIntegersInTheFewestBytes) {
  const std::pair<std::int64_t, std::string_view> table[] = {
      {0, "\x10\0"sv},
      {255, "\x10\xff"sv},
      {256, "\x11\x01\0"sv},
      {65535, "\x11\xff\xff"sv},
      {65536, "\x12\0\x01\0\0"sv},
      {4294967295, "\x12\xff\xff\xff\xff"sv},
      {4294967296, "\x13\0\0\0\x01\0\0\0\0"sv},
      {INT64_MAX, "\x13\x7f\xff\xff\xff\xff\xff\xff\xff"sv},
      {-1, "\x13\xff\xff\xff\xff\xff\xff\xff\xff"sv},
      {INT64_MIN, "\x13\x80\0\0\0\0\0\0\0"sv},
  };
  for (const auto& [number, bytes] : table) EXPECT_EQ(objectOf(number), bytes) << number;
}

TEST(PropertyListWriterTest, WritesScalars) {
  const std::pair<Value, std::string_view> table[] = {
      {false, "\x08"sv},
      {true, "\x09"sv},
      {1.5, "\x23\x3f\xf8\0\0\0\0\0\0"sv},
      {-0.0, "\x23\x80\0\0\0\0\0\0\0"sv},
      {Date(0.5), "\x33\x3f\xe0\0\0\0\0\0\0"sv},
      {Date(-1), "\x33\xbf\xf0\0\0\0\0\0\0"sv},
      {Data(), "\x40"sv},
      {Data::fromText("\xff\0"sv), "\x42\xff\0"sv},
      {Array(), "\xa0"sv},
      {Dictionary(), "\xd0"sv},
  };
  for (const auto& [value, bytes] : table) EXPECT_EQ(objectOf(value), bytes);
}

// The format holds doubles, whatever they stand for.
TEST(PropertyListWriterTest, WritesInfiniteNumbersAndDates) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(objectOf(infinity), "\x23\x7f\xf0\0\0\0\0\0\0"sv);
  EXPECT_EQ(objectOf(Date(-infinity)), "\x33\xff\xf0\0\0\0\0\0\0"sv);
  const auto data = write(std::bit_cast<double>(std::uint64_t{0x7ff8000000000001}));
  ASSERT_TRUE(data);
  EXPECT_EQ(data->text().substr(8, 9), "\x23\x7f\xf8\0\0\0\0\0\x01"sv);
}

TEST(PropertyListWriterTest, WritesASCIITextAsItIsAndOtherTextInUTF16) {
  const std::pair<std::string_view, std::string_view> table[] = {
      {"", "\x50"sv},
      {"a\0b\x7f"sv,
       "\x54"
       "a\0b\x7f"sv},
      {"\u0080", "\x61\0\x80"sv},
      {"a\u00e9\0"sv, "\x63\0a\0\xe9\0\0"sv},
      {"\u07ff\u0800\uffff", "\x63\x07\xff\x08\0\xff\xff"sv},
      {"\ud7ff\ue000", "\x62\xd7\xff\xe0\0"sv},
      {"\U00010000", "\x62\xd8\0\xdc\0"sv},
      {"\U0001f600", "\x62\xd8\x3d\xde\0"sv},
      {"\U0010ffff", "\x62\xdb\xff\xdf\xff"sv},
  };
  for (const auto& [text, bytes] : table) EXPECT_EQ(objectOf(text), bytes) << text;
}

// Texts of every length around the words in which they are compared, each with each.
TEST(PropertyListWriterTest, TellsTextsApartThatDifferInOneByte) {
  for (std::size_t size = 1; size < 36; ++size) {
    Array texts{std::string(size, 'x')};
    for (std::size_t place = 0; place < size; ++place) {
      std::string text(size, 'x');
      text[place] = 'y';
      texts.append(text);
    }
    expectToReadBack(Array{texts, texts});
  }
}

TEST(PropertyListWriterTest, WritesLongCountsAfterTheMarker) {
  EXPECT_EQ(objectOf(std::string(14, 'x')).substr(0, 2), "\x5ex");
  EXPECT_EQ(objectOf(std::string(15, 'x')).substr(0, 4), "\x5f\x10\x0fx");
  EXPECT_EQ(objectOf(Data(kvl::Bytes(15))).substr(0, 3), "\x4f\x10\x0f");
  EXPECT_EQ(objectOf("\u00e9" + std::string(14, 'x')).substr(0, 3), "\x6f\x10\x0f");
  EXPECT_EQ(objectOf(std::string(200, 'x')).substr(0, 3), "\x5f\x10\xc8");
  for (const std::size_t count : {255U, 256U, 65535U, 65536U}) {
    const Value text(std::string(count, 'x'));
    EXPECT_EQ(kvltest::valueFromStrictPropertyList(write(text)->bytes()), text) << count;
  }
}

// Around the numbers of objects and the offsets where another size begins.
// What the trailer says: the sizes of an offset and of a reference.
std::pair<int, int> sizesIn(const Data& data) {
  const auto trailer = data.text().substr(data.size() - 32);
  return {trailer[6], trailer[7]};
}

TEST(PropertyListWriterTest, WritesReferencesAndOffsetsInTheFewestBytes) {
  // The array is an object as well. Up to 80 numbers of two bytes end below 256.
  const std::pair<int, std::pair<int, int>> cases[] = {
      {13, {1, 1}},  {14, {1, 1}},    {15, {1, 1}},    {80, {1, 1}},   {81, {1, 1}},
      {82, {2, 1}},  {254, {2, 1}},   {255, {2, 1}},   {256, {2, 2}},  {257, {2, 2}},
      {300, {2, 2}}, {65534, {4, 2}}, {65535, {4, 2}}, {65536, {4, 4}}};
  for (const auto& [count, sizes] : cases) {
    SCOPED_TRACE(count);
    Array numbers;
    for (int i = 0; i < count; ++i) numbers.append(i);
    expectToReadBack(numbers);
    EXPECT_EQ(sizesIn(write(numbers).value_or(Data())), sizes);
  }
  Dictionary dictionary;
  for (int i = 0; i < 300; ++i) {
    dictionary.set("key" + std::to_string(i), i);
    expectToReadBack(dictionary);
  }
}

TEST(PropertyListWriterTest, WritesEqualLeavesOnceWhereverTheyAre) {
  const Array one{"word", 7, 1.5, Date(3), true};
  const Array many{Dictionary{{"word", "word"}}, one, one, "word", 7};
  const auto data = write(many);
  ASSERT_TRUE(data);
  const auto trailer = data->text().substr(data->size() - 32);
  EXPECT_EQ(trailer[15], 1 + 1 + 2 + 5);  // the top, the dictionary, two lists, five leaves
  EXPECT_EQ(kvltest::valueFromStrictPropertyList(data->bytes()), Value(many));
}

// A table of leaves that took them for crowded together would write some of them twice.
TEST(PropertyListWriterTest, WritesManyEqualLeavesOnce) {
  constexpr int kMany = 20'000;
  const std::pair<const char*, Value (*)(int)> kinds[] = {
      {"reals", [](int i) { return Value(i + 0.5); }},
      {"dates", [](int i) { return Value(Date(i * 86400.0)); }},
      {"integers", [](int i) { return Value(std::int64_t{i} << 40); }},
      {"short texts", [](int i) { return Value(std::to_string(i)); }},
      {"long texts", [](int i) { return Value("korvale.menu." + std::to_string(i) + ".title"); }},
      {"other texts", [](int i) { return Value("\u00e9" + std::to_string(i)); }},
  };
  for (const auto& [name, make] : kinds) {
    Array once;
    for (int i = 0; i < kMany; ++i) once.append(make(i));
    const auto list = write(Array{once, once});
    ASSERT_TRUE(list);
    const auto count = list->bytes().subspan(list->size() - 32 + 8, 8);
    EXPECT_EQ(count[6] << 8 | count[7], 3 + kMany) << name;
    EXPECT_EQ(kvltest::valueFromStrictPropertyList(list->bytes()), Value(Array{once, once}));
  }
}

// What leaves are hashed with, and its inverse.
constexpr std::uint64_t kMixer = 0x9e3779b97f4a7c15;
std::uint64_t unmixed(std::uint64_t mixed) {
  std::uint64_t inverse = 1;
  for (int bits = 1; bits < 64; bits *= 2) inverse *= 2 - kMixer * inverse;
  return mixed * inverse;
}

// Integers that all have the hash 0.
Value colliding(std::uint64_t i) {
  const auto kind = static_cast<std::uint64_t>(Value::Kind::integer);
  return static_cast<std::int64_t>(unmixed(i) ^ std::rotl(kind, 23));
}

// Texts of a word and those that end with a certain word, which all have the hash 0.
Array collidingTexts(std::string_view end) {
  std::uint64_t hash = 8 + end.size();
  if (!end.empty()) {
    std::uint64_t word;
    std::memcpy(&word, end.data(), sizeof word);
    hash = (std::rotl(hash, 23) ^ word) * kMixer;
  }
  Array texts;
  for (std::uint64_t i = 0; texts.size() < 100; ++i) {
    const std::uint64_t word = unmixed(i) ^ std::rotl(hash, 23);
    if ((word & 0x8080808080808080) != 0) continue;
    texts.append(std::string(reinterpret_cast<const char*>(&word), sizeof word) + std::string(end));
  }
  return texts;
}

TEST(PropertyListWriterTest, TellsTextsApartThatHaveTheSameHash) {
  for (const auto* const end : {"", "the same"}) {
    const Array texts = collidingTexts(end);
    expectToReadBack(Array{texts, texts});
  }
}

TEST(PropertyListWriterTest, WritesLeavesThatWereChosenToCollideMoreThanOnce) {
  constexpr int kMany = 20'000;
  Array once;
  for (int i = 0; i < kMany; ++i) once.append(colliding(i));
  const auto list = write(Array{once, once});
  ASSERT_TRUE(list);
  const auto count = list->bytes().subspan(list->size() - 32 + 8, 8);
  constexpr int kMostFound = 128;
  EXPECT_EQ(count[6] << 8 | count[7], 3 + kMostFound + 2 * (kMany - kMostFound));
}

TEST(PropertyListWriterTest, KeepsEqualLookingLeavesOfOtherKindsApart) {
  const Value value(Array{0, 0.0, -0.0, false, Date(0), "", "0", 1, 1.0, true, Data()});
  EXPECT_EQ(kvltest::valueFromStrictPropertyList(write(value)->bytes()), value);
}

TEST(PropertyListWriterTest, HoldsAnyKindAtTheTopButNullAndObjects) {
  for (const Value& value : {Value(true), Value(1), Value(1.5), Value(Date(0)), Value("a"),
                             Value(Data()), Value(Array()), Value(Dictionary())}) {
    EXPECT_TRUE(kvl::isValidForBinaryPropertyList(value)) << value.description();
    EXPECT_TRUE(write(value));
  }
}

TEST(PropertyListWriterTest, RefusesWhatItCannotHoldWithAnError) {
  const Value thing(std::make_shared<Thing>());
  const std::tuple<const char*, Value, std::string> table[] = {
      {"null", Value(), "null"},
      {"null in an array", Array{1, nullptr}, "null"},
      {"null in a dictionary", Dictionary{{"a", nullptr}, {"b", 1}}, "null"},
      {"null far inside", Dictionary{{"a", Array{Dictionary{{"b", nullptr}}}}, {"b", 1}}, "null"},
      {"null beside a date", Dictionary{{"a", Date(0)}, {"b", nullptr}}, "null"},
      {"object", thing, "an object"},
      {"object inside", Array{thing, 1}, "an object"},
      {"text", "\xff", "text that is not UTF-8"},
      {"surrogate", "\xed\xa0\x80", "text that is not UTF-8"},
      {"cut text", Array{"\xe2\x82", 1}, "text that is not UTF-8"},
      {"overlong text", "\xc0\x80", "text that is not UTF-8"},
      {"key", Dictionary{{"\xff", 1}}, "text that is not UTF-8"},
  };
  for (const auto& [name, value, obstacle] : table) {
    EXPECT_FALSE(kvl::isValidForBinaryPropertyList(value)) << name;
    std::optional<kvl::Error> error;
    EXPECT_EQ(kvl::binaryPropertyListFromValue(value, &error), std::nullopt) << name;
    const kvl::Error expected(
        kvl::NSCocoaErrorDomain, kvl::NSPropertyListWriteInvalidError,
        {{kvl::NSDebugDescriptionErrorKey, "a property list cannot hold " + obstacle}});
    EXPECT_EQ(error, expected) << name;
    EXPECT_EQ(kvl::binaryPropertyListFromValue(value, nullptr), std::nullopt) << name;
  }
}

TEST(PropertyListWriterTest, OfSeveralObstaclesTheErrorNamesTheFirst) {
  const std::pair<Value, std::string_view> table[] = {
      {Dictionary{{"a", nullptr}, {"\xff", 1}}, "null"},
      {Dictionary{{"\xff", nullptr}, {"a", 1}}, "text that is not UTF-8"},
      {Array{Array{"\xff"}, nullptr}, "text that is not UTF-8"},
  };
  for (const auto& [value, obstacle] : table) {
    std::optional<kvl::Error> error;
    EXPECT_EQ(kvl::binaryPropertyListFromValue(value, &error), std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->userInfo()[kvl::NSDebugDescriptionErrorKey].string(),
              "a property list cannot hold " + std::string(obstacle));
  }
}

TEST(PropertyListWriterTest, ClearsTheErrorSlotOnSuccess) {
  std::optional<kvl::Error> error = kvl::Error("before", 1);
  EXPECT_TRUE(kvl::binaryPropertyListFromValue(1, &error));
  EXPECT_EQ(error, std::nullopt);
}

// So many arrays or dictionaries around a number.
Value nested(int depth, bool dictionaries) {
  Value value(1);
  for (int i = 0; i < depth; ++i) {
    value = dictionaries ? Value(Dictionary{{"k", value}}) : Value(Array{value});
  }
  return value;
}

TEST(PropertyListWriterTest, HoldsNestingOf512Levels) {
  for (const bool dictionaries : {false, true}) {
    const Value deepest = nested(512, dictionaries);
    EXPECT_TRUE(kvl::isValidForBinaryPropertyList(deepest));
    EXPECT_EQ(kvltest::valueFromStrictPropertyList(write(deepest)->bytes()), deepest);
    const Value deeper = nested(513, dictionaries);
    EXPECT_FALSE(kvl::isValidForBinaryPropertyList(deeper));
    std::optional<kvl::Error> error;
    EXPECT_EQ(kvl::binaryPropertyListFromValue(deeper, &error), std::nullopt);
    EXPECT_TRUE(error && error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListWriteInvalidError));
  }
}

TEST(PropertyListWriterTest, TheStrictReaderRefusesEveryChangedByte) {
  const Value value(Dictionary{{"a", Array{1, "a", 256}}, {"\u00e9", Date(1)}});
  const auto data = write(value);
  ASSERT_TRUE(data);
  for (std::size_t i = 0; i < data->size(); ++i) {
    kvl::Bytes bytes(data->bytes().begin(), data->bytes().end());
    bytes[i] ^= 0x80;
    EXPECT_NE(kvltest::valueFromStrictPropertyList(bytes), value) << i;
  }
}

}  // namespace
