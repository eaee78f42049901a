#include "platform/core/Document.h"
#include "platform/core/ValueAccess.h"

#include <local/platform/Value.h>

#include <cmath>
#include <limits>

namespace kvl {

using detail::ValueAccess;

namespace {

std::int64_t clampedInteger(double real) noexcept {
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(real)) return 0;
  if (real >= limit) return std::numeric_limits<std::int64_t>::max();
  if (real < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
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
  return Array(*this);
}

std::optional<Dictionary> Value::dictionary() const noexcept {
  if (kind() != Kind::dictionary) return std::nullopt;
  return Dictionary(*this);
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
  return String(*this);
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

}  // namespace kvl
