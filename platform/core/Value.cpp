// Values, arrays and dictionaries: their accessors, and equality. ValueDescription.cpp has their
// text.
#include "platform/core/Document.h"
#include "platform/core/ValueAccess.h"

#include <local/platform/Value.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace kvl {

using detail::ArrayNode;
using detail::DictionaryNode;
using detail::ValueAccess;

namespace {

std::int64_t clampedInteger(double real) noexcept {
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(real)) return 0;
  if (real >= limit) return std::numeric_limits<std::int64_t>::max();
  if (real < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

// Becomes what `make` returns where it is to stand: each copy on the way would count as a
// reference.
template <class Make>
struct MadeInPlace {
  operator std::invoke_result_t<Make>() const noexcept { return make(); }
  Make make;
};

// `make` is of the caller's, who may make such objects.
template <class T, class Make>
std::optional<T> optionalOf(Make make) noexcept {
  return std::optional<T>(std::in_place, MadeInPlace<Make>{make});
}

bool isContainer(const Value& value) noexcept {
  return value.kind() == Value::Kind::array || value.kind() == Value::Kind::dictionary;
}

// Compares containers level by level, so that depth of nesting costs no stack.
class Comparison {
 public:
  // Whether `a` and `b` are equal, containers at first sight only: what is in them is left to
  // `finish`.
  bool compare(const Value& a, const Value& b);
  // Whether everything that was left is equal too.
  bool finish();

 private:
  struct Pair {
    const Value* a;
    const Value* b;
  };

  bool compareElements(const Pair& arrays);
  bool compareEntries(const Pair& dictionaries);

  std::vector<Pair> left_;
};

bool sameScalar(const Value& a, const Value& b) noexcept {
  using enum Value::Kind;
  switch (a.kind()) {
    case boolean:
    case integer:
      return *a.integer() == *b.integer();
    case real:
      return *a.real() == *b.real();
    case date:
      return *a.date() == *b.date();
    case string:
      return ValueAccess::text(a) == ValueAccess::text(b);
    case data:
      return ValueAccess::data(a) == ValueAccess::data(b);
    case object:
      return ValueAccess::object(a) == ValueAccess::object(b);
    default:
      return true;
  }
}

bool Comparison::compare(const Value& a, const Value& b) {
  if (a.kind() != b.kind()) return false;
  if (!isContainer(a)) return sameScalar(a, b);
  if (ValueAccess::identity(a) != ValueAccess::identity(b)) left_.push_back({&a, &b});
  return true;
}

bool Comparison::finish() {
  while (!left_.empty()) {
    const Pair pair = left_.back();
    left_.pop_back();
    const bool equal =
        pair.a->kind() == Value::Kind::array ? compareElements(pair) : compareEntries(pair);
    if (!equal) return false;
  }
  return true;
}

bool Comparison::compareElements(const Pair& arrays) {
  return std::ranges::equal(ValueAccess::elements(*arrays.a), ValueAccess::elements(*arrays.b),
                            [this](const Value& a, const Value& b) { return compare(a, b); });
}

bool Comparison::compareEntries(const Pair& dictionaries) {
  const auto entries = ValueAccess::entries(*dictionaries.a);
  if (entries.size() != ValueAccess::entries(*dictionaries.b).size()) return false;
  return std::ranges::all_of(entries, [&](const Dictionary::Entry& entry) {
    const auto* other = ValueAccess::find(*dictionaries.b, entry.first);
    return other != nullptr && compare(entry.second, other->second);
  });
}

}  // namespace

Value::Value(Kind kind, const detail::Node* adopted) noexcept
    : cell_{ValueAccess::headOf(kind, ValueAccess::Storage::counted), {.pointer = adopted}} {}

Value::Value(std::string_view text) : Value(Kind::string, new detail::StringNode(text)) {}
Value::Value(Data data) : Value(Kind::data, new detail::DataNode(std::move(data))) {}
Value::Value(const String& string) noexcept : Value(string.value_) {}
Value::Value(const Number& number) noexcept : Value(number.value_) {}
Value::Value(const Array& array) noexcept : Value(array.value_) {}
Value::Value(const Dictionary& dictionary) noexcept : Value(dictionary.value_) {}
Value::Value(std::shared_ptr<Object> object) {
  if (object) *this = Value(Kind::object, new detail::ObjectNode(std::move(object)));
}

void Value::retain(const Value& other) noexcept {
  const Value* placed = ValueAccess::placedValue(other);
  if (placed == nullptr) return ValueAccess::node<detail::Node>(other).retain();
  cell_ = {ValueAccess::headOf(kind(), ValueAccess::Storage::borrowed), {.pointer = placed}};
  ValueAccess::documentOf(*placed).retain();
}

void Value::release() noexcept {
  if (const Value* placed = ValueAccess::placedValue(*this))
    return ValueAccess::documentOf(*placed).release();
  const auto& node = ValueAccess::node<detail::Node>(*this);
  if (node.drop()) detail::destroy(kind(), &node);
}

std::optional<bool> Value::boolean() const noexcept {
  if (kind() == Kind::real) return cell_.payload.real != 0;
  if (isNumber()) return cell_.payload.integer != 0;
  return std::nullopt;
}

std::optional<std::int64_t> Value::integer() const noexcept {
  if (kind() == Kind::real) return clampedInteger(cell_.payload.real);
  if (isNumber()) return cell_.payload.integer;
  return std::nullopt;
}

std::optional<double> Value::real() const noexcept {
  if (kind() == Kind::real) return cell_.payload.real;
  if (isNumber()) return static_cast<double>(cell_.payload.integer);
  return std::nullopt;
}

std::optional<Date> Value::date() const noexcept {
  if (kind() != Kind::date) return std::nullopt;
  return Date(cell_.payload.real);
}

std::optional<std::string_view> Value::string() const noexcept {
  if (kind() != Kind::string) return std::nullopt;
  return ValueAccess::text(*this);
}

std::optional<Data> Value::data() const noexcept {
  if (kind() != Kind::data) return std::nullopt;
  return ValueAccess::data(*this);
}

std::optional<Array> Value::array() const noexcept {
  if (kind() != Kind::array) return std::nullopt;
  return optionalOf<Array>([this] { return Array(*this); });
}

std::optional<Dictionary> Value::dictionary() const noexcept {
  if (kind() != Kind::dictionary) return std::nullopt;
  return optionalOf<Dictionary>([this] { return Dictionary(*this); });
}

std::shared_ptr<Object> Value::object() const noexcept {
  if (kind() != Kind::object) return nullptr;
  return ValueAccess::object(*this);
}

std::string_view Value::typeName() const noexcept {
  switch (kind()) {
    case Kind::null:
      return "null";
    case Kind::boolean:
    case Kind::integer:
    case Kind::real:
      return "number";
    case Kind::date:
      return "date";
    case Kind::string:
      return "string";
    case Kind::data:
      return "data";
    case Kind::array:
      return "array";
    case Kind::dictionary:
      return "dictionary";
    case Kind::object:
      return ValueAccess::object(*this)->typeName();
  }
  return {};
}

bool Value::isSameObject(const Value& other) const noexcept {
  if (kind() != other.kind()) return false;
  return isObject() ? ValueAccess::identity(*this) == ValueAccess::identity(other) : *this == other;
}

template <>
std::optional<String> Value::as() const noexcept {
  if (kind() != Kind::string) return std::nullopt;
  return optionalOf<String>([this] { return String(*this); });
}
template <>
std::optional<Number> Value::as() const noexcept {
  if (!isNumber()) return std::nullopt;
  return Number(*this);
}
template <>
std::optional<Date> Value::as() const noexcept {
  return date();
}
template <>
std::optional<Data> Value::as() const noexcept {
  return data();
}
template <>
std::optional<Array> Value::as() const noexcept {
  return array();
}
template <>
std::optional<Dictionary> Value::as() const noexcept {
  return dictionary();
}

bool operator==(const Value& a, const Value& b) noexcept {
  Comparison comparison;
  return comparison.compare(a, b) && comparison.finish();
}

Array::Array() : Array(std::vector<Value>{}) {}
Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}
Array::Array(std::vector<Value> values)
    : value_(Value::Kind::array, new ArrayNode(std::move(values))) {}

std::size_t Array::size() const noexcept {
  return ValueAccess::elements(value_).size();
}
const Value& Array::operator[](std::size_t index) const noexcept {
  return begin()[index];
}
const Value* Array::begin() const noexcept {
  return ValueAccess::elements(value_).data();
}
const Value* Array::end() const noexcept {
  const auto elements = ValueAccess::elements(value_);
  return elements.data() + elements.size();
}
void Array::append(Value value) {
  static_cast<void>(ValueAccess::detachArray(value_));
  ValueAccess::array(value_).values.push_back(std::move(value));
}

Dictionary::Dictionary() : value_(Value::Kind::dictionary, new DictionaryNode) {}
Dictionary::Dictionary(std::initializer_list<Entry> entries) : Dictionary() {
  for (const auto& [key, value] : entries) set(key, value);
}

std::size_t Dictionary::size() const noexcept {
  return ValueAccess::entries(value_).size();
}
const Value* Dictionary::find(std::string_view key) const noexcept {
  const Entry* entry = ValueAccess::find(value_, key);
  return entry != nullptr ? &entry->second : nullptr;
}
const Value& Dictionary::operator[](std::string_view key) const noexcept {
  static const Value null;
  const Value* value = find(key);
  return value != nullptr ? *value : null;
}
const Dictionary::Entry* Dictionary::begin() const noexcept {
  return ValueAccess::entries(value_).data();
}
const Dictionary::Entry* Dictionary::end() const noexcept {
  const auto entries = ValueAccess::entries(value_);
  return entries.data() + entries.size();
}
void Dictionary::set(std::string_view key, Value value) {
  // The key may be one of the shared dictionary's.
  const Value shared = ValueAccess::detachDictionary(value_);
  ValueAccess::dictionary(value_).set(key, std::move(value));
}
void Dictionary::remove(std::string_view key) {
  const Value shared = ValueAccess::detachDictionary(value_);
  ValueAccess::dictionary(value_).remove(key);
}

}  // namespace kvl
