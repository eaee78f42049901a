// What other libraries read from the property lists that are written here.
#include "platform/serialisation/PropertyListWriter.h"
#include "tests/serialisation/MadeValue.h"
#include "tests/serialisation/PropertyListReader.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <bit>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using kvl::Value;
using kvltest::ValueMaker;

class RandomValues {
 public:
  explicit RandomValues(ValueMaker::Range range) : range_(range) {}

  Value next() {
    kvl::Bytes bytes(random_() % 600);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random_());
    return ValueMaker(bytes, range_).value();
  }

 private:
  std::mt19937 random_{1};
  ValueMaker::Range range_;
};

kvl::Data propertyListOf(const Value& value) {
  std::optional<kvl::Error> error;
  const auto data = kvl::binaryPropertyListFromValue(value, &error);
  EXPECT_TRUE(data) << error->description();
  return data.value_or(kvl::Data());
}

std::string hexadecimal(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto byte = static_cast<std::uint8_t>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xf];
  }
  return text;
}

std::string bitsOf(double number) {
  auto bits = std::bit_cast<std::uint64_t>(number);
  std::string bytes(sizeof bits, '\0');
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, bits >>= 8) {
    *byte = static_cast<char>(bits & 0xff);
  }
  return hexadecimal(bytes);
}

std::string notation(const Value& value);

std::string notation(const kvl::Array& array) {
  std::string text = "[";
  for (const auto& element : array) text += notation(element) + ",";
  return text + "]";
}

std::string notation(const kvl::Dictionary& dictionary) {
  std::string text = "{";
  for (const auto& [key, element] : dictionary) {
    text += "s" + hexadecimal(key) + ":" + notation(element) + ",";
  }
  return text + "}";
}

// As PropertyListOracle.py prints it.
std::string notation(const Value& value) {
  using enum Value::Kind;
  switch (value.kind()) {
    case boolean:
      return *value.boolean() ? "true" : "false";
    case integer:
      return "i" + std::to_string(*value.integer());
    case real:
      return "r" + bitsOf(*value.real());
    case date:
      return "d" + bitsOf(value.date()->secondsSinceReferenceDate());
    case string:
      return "s" + hexadecimal(*value.string());
    case data:
      return "b" + hexadecimal(value.data()->text());
    case array:
      return notation(*value.array());
    default:
      return notation(*value.dictionary());
  }
}

// The lines that the script prints for the values.
std::vector<std::string> linesOfPlistlib(const std::vector<Value>& values) {
  const kvltest::TemporaryDirectory folder;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto data = propertyListOf(values[i]);
    std::ofstream(folder.path() / (std::to_string(i) + ".plist"), std::ios::binary) << data.text();
  }
  const auto output = folder.path() / "output";
  kvltest::ChildProcess script(
      {"python3", "-I", "-W", "ignore", KVL_PROPERTY_LIST_ORACLE, folder.path()},
      kvltest::environmentWith({}), output);
  EXPECT_EQ(script.wait(), 0);
  std::ifstream file(output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

TEST(PropertyListOracleTest, PlistlibReadsAndWritesTheSame) {
  RandomValues random(ValueMaker::Range::portable);
  std::vector<Value> values;
  while (values.size() < 1000) values.push_back(random.next());
  const auto lines = linesOfPlistlib(values);
  ASSERT_EQ(lines.size(), values.size()) << (lines.empty() ? "" : lines.back());
  for (std::size_t i = 0; i < values.size(); ++i) {
    ASSERT_EQ(lines[i], "same " + notation(values[i]));
  }
}

// What libplist cannot hold.
TEST(PropertyListOracleTest, PlistlibReadsTheRestToo) {
  using namespace std::string_view_literals;
  Value deep(kvl::Array{1});
  for (int depth = 1; depth < 512; ++depth) deep = kvl::Array{deep};
  kvl::Array many;
  for (int i = 0; i < 70'000; ++i) many.append(std::to_string(i));
  const std::vector<Value> values{"a\0b"sv,
                                  kvl::Dictionary{{"k\0"sv, 1}},
                                  kvl::Date(-62'000'000'000),
                                  kvl::Date(250'000'000'000),
                                  kvl::Date(736259696.123456),
                                  kvl::Date(-736259696.25),
                                  std::numeric_limits<double>::quiet_NaN(),
                                  -std::numeric_limits<double>::infinity(),
                                  -0.0,
                                  INT64_MIN,
                                  deep,
                                  many};
  const auto lines = linesOfPlistlib(values);
  ASSERT_EQ(lines.size(), values.size()) << (lines.empty() ? "" : lines.back());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(lines[i], "same " + notation(values[i]));
  }
}

struct FreePlist {
  void operator()(void* node) const { plist_free(node); }
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
using PlistPointer = std::unique_ptr<void, FreePlist>;

Value valueOf(plist_t node);

std::string keyOf(plist_t node) {
  char* text = nullptr;
  plist_get_key_val(node, &text);
  const std::unique_ptr<char, FreeMemory> owner(text);
  return text;
}

kvl::Array arrayOf(plist_t node) {
  kvl::Array array;
  for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
    array.append(valueOf(plist_array_get_item(node, i)));
  }
  return array;
}

kvl::Dictionary dictionaryOf(plist_t node) {
  kvl::Dictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const std::unique_ptr<void, FreeMemory> owner(iterator);
  while (true) {
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, nullptr, &item);
    if (item == nullptr) return dictionary;
    dictionary.set(keyOf(plist_dict_item_get_key(item)), valueOf(item));
  }
}

double realOf(plist_t node) {
  double number = 0;
  plist_get_real_val(node, &number);
  return number;
}

kvl::Date dateOf(plist_t node) {
  constexpr double kMicroseconds = 1e6;
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  return kvl::Date(seconds + microseconds / kMicroseconds);
}

Value scalarOf(plist_t node) {
  if (plist_get_node_type(node) == PLIST_BOOLEAN) {
    std::uint8_t truth = 0;
    plist_get_bool_val(node, &truth);
    return truth != 0;
  }
  std::uint64_t number = 0;
  plist_get_uint_val(node, &number);
  return static_cast<std::int64_t>(number);
}

// What libplist read.
Value valueOf(plist_t node) {
  std::uint64_t size = 0;
  switch (plist_get_node_type(node)) {
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_STRING: {
      const char* text = plist_get_string_ptr(node, &size);
      return std::string_view(text, size);
    }
    case PLIST_DATA: {
      const char* bytes = plist_get_data_ptr(node, &size);
      return kvl::Data::fromText({bytes, size});
    }
    case PLIST_REAL:
      return realOf(node);
    case PLIST_DATE:
      return dateOf(node);
    default:
      return scalarOf(node);
  }
}

TEST(PropertyListOracleTest, LibplistReadsTheSame) {
  RandomValues random(ValueMaker::Range::portable);
  for (int round = 0; round < 3000; ++round) {
    const Value value = random.next();
    const auto data = propertyListOf(value);
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(data.data()),
                   static_cast<std::uint32_t>(data.size()), &node);
    const PlistPointer owner(node);
    ASSERT_NE(node, nullptr) << value.description();
    ASSERT_EQ(notation(valueOf(node)), notation(value));
  }
}

TEST(PropertyListOracleTest, AStrictReaderReadsTheSame) {
  RandomValues random(ValueMaker::Range::everything);
  int valid = 0;
  for (int round = 0; round < 10'000; ++round) {
    const Value value = random.next();
    const auto data = kvl::binaryPropertyListFromValue(value, nullptr);
    ASSERT_EQ(data.has_value(), kvl::isValidForBinaryPropertyList(value)) << value.description();
    if (!data) continue;
    ++valid;
    const auto read = kvltest::valueFromStrictPropertyList(data->bytes());
    ASSERT_TRUE(read) << value.description();
    ASSERT_EQ(notation(*read), notation(value));
  }
  EXPECT_GT(valid, 1000);
}

}  // namespace
