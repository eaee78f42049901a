#include "tests/serialisation/JSONOracle.h"

#include "platform/serialisation/JSONReader.h"

#include <simdjson.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace kvltest {
namespace {

namespace dom = simdjson::dom;

// The oracle counts what is within a container, so that it lets an empty one stand one level
// deeper.
constexpr std::size_t kOracleDepth = kvl::kMaximumJSONDepth + 1;
constexpr std::size_t kLongIntegerDigits = 19;

kvl::Value converted(const dom::element& element);

kvl::Value convertedArray(const dom::array& array) {
  std::vector<kvl::Value> values;
  for (const dom::element element : array) values.push_back(converted(element));
  return kvl::Array(std::move(values));
}

kvl::Value convertedObject(const dom::object& object) {
  kvl::Dictionary dictionary;
  for (const dom::key_value_pair field : object) dictionary.set(field.key, converted(field.value));
  return dictionary;
}

kvl::Value converted(const dom::element& element) {
  switch (element.type()) {
    case dom::element_type::ARRAY:
      return convertedArray(element.get_array());
    case dom::element_type::OBJECT:
      return convertedObject(element.get_object());
    case dom::element_type::INT64:
      return std::int64_t{element.get_int64()};
    case dom::element_type::UINT64:
      return static_cast<double>(std::uint64_t{element.get_uint64()});
    case dom::element_type::DOUBLE:
      return double{element.get_double()};
    case dom::element_type::STRING:
      return std::string_view(element.get_string());
    case dom::element_type::BOOL:
      return bool{element.get_bool()};
    case dom::element_type::NULL_VALUE:
      break;
  }
  return nullptr;
}

std::size_t depthOf(const kvl::Value& value) {
  std::size_t deepest = 0;
  if (const auto array = value.array()) {
    for (const kvl::Value& element : *array) deepest = std::max(deepest, depthOf(element));
    return deepest + 1;
  }
  if (const auto dictionary = value.dictionary()) {
    for (const auto& [key, element] : *dictionary) deepest = std::max(deepest, depthOf(element));
    return deepest + 1;
  }
  return 0;
}

bool hasLongInteger(std::string_view text) {
  std::size_t digits = 0;
  for (const char character : text) {
    digits = std::isdigit(static_cast<unsigned char>(character)) != 0 ? digits + 1 : 0;
    if (digits == kLongIntegerDigits) return true;
  }
  return false;
}

std::string described(const std::optional<kvl::Value>& value) {
  return value ? value->description() : "nothing";
}

}  // namespace

OracleResult oracleValue(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  const simdjson::padded_string padded(text);
  dom::parser parser;
  if (parser.allocate(text.size(), kOracleDepth) != simdjson::SUCCESS) return {};
  const auto result = parser.parse(padded);
  if (result.error() == simdjson::SUCCESS) {
    const kvl::Value value = converted(result.value_unsafe());
    if (depthOf(value) > kvl::kMaximumJSONDepth) return {};
    return {value};
  }
  return {std::nullopt, result.error() == simdjson::NUMBER_ERROR && hasLongInteger(text)};
}

std::string differenceFromOracle(std::string_view text) {
  const auto value = kvl::valueFromJSON(kvl::Data::fromText(text), nullptr);
  const OracleResult oracle = oracleValue(text);
  if (value == oracle.value || (value && oracle.mayRefuse)) return {};
  return described(value) + " is not " + described(oracle.value) + " in " + std::string(text);
}

}  // namespace kvltest
