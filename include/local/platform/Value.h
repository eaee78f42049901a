/// @file
/// Document values: what JSON and property lists hold, and what errors carry.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Date.h>
#include <local/platform/Export.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {

class Array;
class Dictionary;

namespace detail {
struct Node;
KVL_EXPORT void retain(const Node* node) noexcept;
KVL_EXPORT void release(const Node* node) noexcept;
}  // namespace detail

/// One document value. A `Value` is immutable and 16 bytes large: null, booleans, numbers and
/// dates are held inline, everything else is a heap object shared by reference and counted
/// atomically, so copies are cheap and may be used on any thread.
///
/// Accessors never convert between kinds: they answer absent for a value of another kind.
class KVL_EXPORT Value {
 public:
  enum class Kind : std::uint8_t {
    null,
    boolean,
    integer,
    real,
    date,
    string,
    data,
    array,
    dictionary,
  };

  Value() noexcept = default;
  Value(std::nullptr_t) noexcept {}
  Value(std::same_as<bool> auto value) noexcept : kind_(Kind::boolean) { payload_.integer = value; }
  Value(double value) noexcept : kind_(Kind::real) { payload_.real = value; }
  Value(Date value) noexcept : kind_(Kind::date) {
    payload_.real = value.secondsSinceReferenceDate();
  }
  Value(const char* text) : Value(std::string_view(text)) {}
  Value(const std::string& text) : Value(std::string_view(text)) {}
  Value(std::string_view text);
  Value(Data data);
  Value(const Array& array) noexcept;
  Value(const Dictionary& dictionary) noexcept;

  /// Any integer type but `bool`. An unsigned value beyond the signed 64-bit range becomes a real.
  template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>)
  Value(T value) noexcept {
    if (std::in_range<std::int64_t>(value)) {
      kind_ = Kind::integer;
      payload_.integer = static_cast<std::int64_t>(value);
    } else {
      kind_ = Kind::real;
      payload_.real = static_cast<double>(value);
    }
  }

  Value(const Value& other) noexcept : kind_(other.kind_), payload_(other.payload_) {
    if (isObject()) detail::retain(payload_.node);
  }
  Value(Value&& other) noexcept : kind_(other.kind_), payload_(other.payload_) {
    other.kind_ = Kind::null;
  }
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    swap(copy);
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    swap(other);
    return *this;
  }
  ~Value() {
    if (isObject()) detail::release(payload_.node);
  }
  void swap(Value& other) noexcept {
    std::swap(kind_, other.kind_);
    std::swap(payload_, other.payload_);
  }

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  [[nodiscard]] bool isNull() const noexcept { return kind_ == Kind::null; }
  /// Booleans are numbers.
  [[nodiscard]] bool isNumber() const noexcept {
    return kind_ == Kind::boolean || kind_ == Kind::integer || kind_ == Kind::real;
  }

  /// The number's truth: non-zero is true. Absent for what is no number.
  [[nodiscard]] std::optional<bool> boolean() const noexcept;
  /// The number's integer value, a fraction truncated toward zero and the result clamped to the
  /// signed 64-bit range (not-a-number gives 0). Absent for what is no number.
  [[nodiscard]] std::optional<std::int64_t> integer() const noexcept;
  /// The number's value as a real. Absent for what is no number.
  [[nodiscard]] std::optional<double> real() const noexcept;
  [[nodiscard]] std::optional<Date> date() const noexcept;
  /// The text, which stays valid while any copy of this value lives.
  [[nodiscard]] std::optional<std::string_view> string() const noexcept;
  [[nodiscard]] std::optional<Data> data() const noexcept;
  [[nodiscard]] std::optional<Array> array() const noexcept;
  [[nodiscard]] std::optional<Dictionary> dictionary() const noexcept;

  /// Whether both are one and the same stored object. Values held inline are the same when they
  /// are equal and of one kind.
  [[nodiscard]] bool isSameObject(const Value& other) const noexcept;

  /// Equal kind and equal content; `1` and `1.0` are different values, `true` and `1` too.
  friend KVL_EXPORT bool operator==(const Value& a, const Value& b) noexcept;

  /// One line of text for logs, such as `{name = "a b"; list = (1, 2)}`.
  [[nodiscard]] std::string description() const;

 private:
  friend class Array;
  friend class Dictionary;
  Value(Kind kind, const detail::Node* adopted) noexcept : kind_(kind) { payload_.node = adopted; }
  [[nodiscard]] bool isObject() const noexcept { return kind_ >= Kind::string; }

  union Payload {
    std::int64_t integer;
    double real;
    const detail::Node* node;
  };
  Kind kind_ = Kind::null;
  Payload payload_ = {0};
};

/// An ordered list of values, shared by reference. Changing it never changes another copy.
class KVL_EXPORT Array {
 public:
  Array();
  Array(std::initializer_list<Value> values);
  explicit Array(std::vector<Value> values);
  // Copies only: an array that was moved from would hold nothing at all.
  Array(const Array&) = default;
  Array& operator=(const Array&) = default;
  ~Array() = default;

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// @pre `index < size()`
  [[nodiscard]] const Value& operator[](std::size_t index) const noexcept;
  [[nodiscard]] const Value* begin() const noexcept;
  [[nodiscard]] const Value* end() const noexcept;
  /// Appends a value; the storage is copied first when another copy shares it.
  void append(Value value);
  [[nodiscard]] std::string description() const { return value_.description(); }

  friend bool operator==(const Array& a, const Array& b) noexcept { return a.value_ == b.value_; }

 private:
  friend class Value;
  explicit Array(const Value& value) noexcept : value_(value) {}
  Value value_;
};

/// A string-keyed dictionary that keeps the order in which its keys were first set, shared by
/// reference. Changing it never changes another copy.
class KVL_EXPORT Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary();
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);
  // Copies only: a dictionary that was moved from would hold nothing at all.
  Dictionary(const Dictionary&) = default;
  Dictionary& operator=(const Dictionary&) = default;
  ~Dictionary() = default;

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// The value stored under `key` (a stored null included), or none.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept;
  [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  /// The value stored under `key`, or the null value.
  [[nodiscard]] const Value& operator[](std::string_view key) const noexcept;
  [[nodiscard]] const Entry* begin() const noexcept;
  [[nodiscard]] const Entry* end() const noexcept;
  /// Stores `value` under `key`, replacing what was there.
  void set(std::string_view key, Value value);
  /// Removes the entry of `key`, if there is one.
  void remove(std::string_view key);
  [[nodiscard]] std::string description() const { return value_.description(); }

  friend bool operator==(const Dictionary& a, const Dictionary& b) noexcept {
    return a.value_ == b.value_;
  }

 private:
  friend class Value;
  explicit Dictionary(const Value& value) noexcept : value_(value) {}
  Value value_;
};

}  // namespace kvl
