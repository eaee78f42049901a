/// @file
/// Document values: what JSON and property lists hold, and what errors carry.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Date.h>
#include <local/platform/Export.h>
#include <local/platform/Object.h>
#include <local/platform/detail/ValueCell.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl {

class Array;
class Dictionary;
class Number;
class String;

namespace detail {
struct Node;
class DocumentBuilder;
class ValueAccess;
}  // namespace detail

/// One document value. A `Value` is immutable and 16 bytes large: null, booleans, numbers and
/// dates are held inline, everything else is an object on the heap that is shared by reference, so
/// copies are cheap and may be used on any thread.
///
/// References to an object that code created are counted for that object. The objects of a parsed
/// document are counted together: a value taken out of the document keeps all of it, its text
/// included, alive.
///
/// Accessors never convert between kinds: they answer absent for a value of another kind.
class KVL_EXPORT Value {
 public:
  /// What a value is. It never changes but by assignment.
  enum class Kind : std::uint8_t {
    null,        ///< stands for absence
    boolean,     ///< a number that is true or false
    integer,     ///< a number of 64 bits with a sign
    real,        ///< a floating number of 64 bits
    date,        ///< a `Date`
    string,      ///< a text
    data,        ///< bytes
    array,       ///< values in order
    dictionary,  ///< values under keys
    object,      ///< an `Object` of a class of its own
  };

  Value() noexcept = default;
  /// The null value.
  Value(std::nullptr_t) noexcept {}
  /// A boolean; of `bool` alone, so that no pointer becomes one.
  Value(std::same_as<bool> auto value) noexcept
      : cell_{Cell::headOf(Kind::boolean), {.integer = value}} {}
  /// A real.
  Value(double value) noexcept : cell_{Cell::headOf(Kind::real), {.real = value}} {}
  /// A date, to the precision of `Date`.
  Value(Date value) noexcept
      : cell_{Cell::headOf(Kind::date), {.real = value.secondsSinceReferenceDate()}} {}
  /// A string, up to the first NUL. @pre not null
  Value(const char* text) : Value(std::string_view(text)) {}
  /// A copy of the text.
  Value(const std::string& text) : Value(std::string_view(text)) {}
  /// A copy of the text, which may hold NUL.
  Value(std::string_view text);
  /// Shares the bytes.
  Value(Data data);
  /// Shares the text.
  Value(const String& string) noexcept;
  /// The number as it was stored.
  Value(const Number& number) noexcept;
  /// Shares the elements.
  Value(const Array& array) noexcept;
  /// Shares the entries.
  Value(const Dictionary& dictionary) noexcept;
  /// An object of a class of its own, shared; none makes the null value.
  Value(std::shared_ptr<Object> object);
  /// The same for an object of a class derived from `Object`, as in `Dictionary{{"file", file}}`.
  template <class T>
    requires(std::convertible_to<T*, Object*> && !std::same_as<T, Object>)
  Value(std::shared_ptr<T> object) : Value(std::shared_ptr<Object>(std::move(object))) {}

  /// Any integer type but `bool`. An unsigned value beyond the signed 64-bit range becomes a real.
  template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>)
  Value(T value) noexcept {
    if (std::in_range<std::int64_t>(value)) {
      cell_ = {Cell::headOf(Kind::integer), {.integer = static_cast<std::int64_t>(value)}};
    } else {
      cell_ = {Cell::headOf(Kind::real), {.real = static_cast<double>(value)}};
    }
  }

  /// Shares what cannot be held in place.
  Value(const Value& other) noexcept : cell_(other.cell_) {
    if (isObject()) retain(other);
  }
  /// Leaves `other` null.
  Value(Value&& other) noexcept : cell_(std::exchange(other.cell_, Cell{})) {}
  /// Lets go of what was here.
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    swap(copy);
    return *this;
  }
  /// Leaves in `other` what was here.
  Value& operator=(Value&& other) noexcept {
    swap(other);
    return *this;
  }
  ~Value() {
    if (isObject()) release();
  }
  /// Exchanges the two without counting references.
  void swap(Value& other) noexcept { std::swap(cell_, other.cell_); }

  /// What this value is.
  [[nodiscard]] Kind kind() const noexcept { return static_cast<Kind>(cell_.kind()); }
  /// Whether this is the null value, which stands for absence in a document.
  [[nodiscard]] bool isNull() const noexcept { return kind() == Kind::null; }
  /// Booleans are numbers.
  [[nodiscard]] bool isNumber() const noexcept {
    return kind() == Kind::boolean || kind() == Kind::integer || kind() == Kind::real;
  }

  /// The number's truth: non-zero is true. Absent for what is no number.
  [[nodiscard]] std::optional<bool> boolean() const noexcept;
  /// The number's integer value, a fraction truncated toward zero and the result clamped to the
  /// signed 64-bit range (not-a-number gives 0). Absent for what is no number.
  [[nodiscard]] std::optional<std::int64_t> integer() const noexcept;
  /// The number's value as a real. Absent for what is no number.
  [[nodiscard]] std::optional<double> real() const noexcept;
  /// Absent for what is no date; a string in date form is none.
  [[nodiscard]] std::optional<Date> date() const noexcept;
  /// The text, which stays valid while any copy of this value lives.
  [[nodiscard]] std::optional<std::string_view> string() const noexcept;
  /// The bytes, shared. Absent for what is no data.
  [[nodiscard]] std::optional<Data> data() const noexcept;
  /// The array, shared. Absent for what is none.
  [[nodiscard]] std::optional<Array> array() const noexcept;
  /// The dictionary, shared. Absent for what is none.
  [[nodiscard]] std::optional<Dictionary> dictionary() const noexcept;
  /// The object, or none.
  [[nodiscard]] std::shared_ptr<Object> object() const noexcept;

  /// What the value is, for diagnostics: "null", "number" (booleans too), "date", "string", "data",
  /// "array", "dictionary", or the name of the object's class.
  [[nodiscard]] std::string_view typeName() const noexcept;

  /// The value as a `String`, `Number`, `Date`, `Data`, `Array` or `Dictionary`: the stored object
  /// itself. Absent for a value of another kind.
  template <class T>
  [[nodiscard]] std::optional<T> as() const noexcept;

  /// Whether both are one and the same stored object. Values held inline are the same when they
  /// are equal and of one kind.
  [[nodiscard]] bool isSameObject(const Value& other) const noexcept;

  /// Equal kind and equal content; `1` and `1.0` are different values, `true` and `1` too.
  friend KVL_EXPORT bool operator==(const Value& a, const Value& b) noexcept;

  /// One line of text for logs, such as `{name = "a b"; list = (1, 2)}`. Deep within a value `...`
  /// stands for what is nested there.
  [[nodiscard]] std::string description() const;

 private:
  friend class Array;
  friend class Dictionary;
  friend class String;
  friend class detail::DocumentBuilder;
  friend class detail::ValueAccess;

  using Cell = detail::ValueCell;

  explicit Value(const Cell& cell) noexcept : cell_(cell) {}
  Value(Kind kind, const detail::Node* adopted) noexcept;
  [[nodiscard]] bool isObject() const noexcept { return kind() >= Kind::string; }
  // Counts this copy of the object that `other` holds.
  void retain(const Value& other) noexcept;
  void release() noexcept;

  Cell cell_{};
};

/// A string of a document, shared by reference: one that was taken out of a value is the stored
/// object.
class KVL_EXPORT String {
 public:
  /// The empty text.
  String() : String(std::string_view()) {}
  /// A copy of the text, which may hold NUL.
  String(std::string_view text) : value_(text) {}
  /// A copy of the text.
  String(const std::string& text) : value_(text) {}
  /// A copy, up to the first NUL. @pre not null
  String(const char* text) : value_(text) {}
  // Copies only: a string that was moved from would hold nothing at all.
  /// Shares the text.
  String(const String&) = default;
  /// Shares the text.
  String& operator=(const String&) = default;
  ~String() = default;

  /// The text, which stays valid while any copy of this string lives.
  [[nodiscard]] std::string_view text() const noexcept { return *value_.string(); }
  /// As `text`, and valid as long.
  operator std::string_view() const noexcept { return text(); }
  /// Whether there is no character.
  [[nodiscard]] bool empty() const noexcept { return text().empty(); }
  /// For the log: the text as it is.
  [[nodiscard]] std::string description() const { return std::string(text()); }

  /// By bytes; no two spellings of a character are the same.
  friend bool operator==(const String& a, const String& b) noexcept { return a.text() == b.text(); }
  /// By bytes.
  friend bool operator==(const String& a, std::string_view b) noexcept { return a.text() == b; }

 private:
  friend class Value;
  explicit String(const Value& value) noexcept : value_(value) {}
  Value value_;
};

/// A number of a document: a boolean, an integer or a real, as it was stored.
class KVL_EXPORT Number {
 public:
  /// A boolean; of `bool` alone.
  Number(std::same_as<bool> auto value) noexcept : value_(value) {}
  /// A real.
  Number(double value) noexcept : value_(value) {}
  /// An integer; beyond the signed 64-bit range a real.
  template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char>)
  Number(T value) noexcept : value_(value) {}
  // Copies only: a number that was moved from would hold nothing at all.
  /// The same number, kind included.
  Number(const Number&) = default;
  /// The same number, kind included.
  Number& operator=(const Number&) = default;
  ~Number() = default;

  /// `boolean`, `integer` or `real`.
  [[nodiscard]] Value::Kind kind() const noexcept { return value_.kind(); }
  /// @name The number's value, converted as `Value`'s accessors say
  /// @{

  /// Whether it is not zero.
  [[nodiscard]] bool boolean() const noexcept { return *value_.boolean(); }
  /// Truncated toward zero and clamped.
  [[nodiscard]] std::int64_t integer() const noexcept { return *value_.integer(); }
  /// The nearest real.
  [[nodiscard]] double real() const noexcept { return *value_.real(); }
  /// @}
  /// Decimal text: a boolean is 1 or 0, a real its shortest form that reads back.
  [[nodiscard]] std::string description() const;

  /// Equal kind and equal value.
  friend bool operator==(const Number& a, const Number& b) noexcept { return a.value_ == b.value_; }

 private:
  friend class Value;
  explicit Number(const Value& value) noexcept : value_(value) {}
  Value value_;
};

/// An ordered list of values, shared by reference. Changing it never changes another copy.
class KVL_EXPORT Array {
 public:
  /// An empty array.
  Array();
  /// An array that holds one array is `Array{Value(inner)}`: of `Array{inner}` some compilers make
  /// a copy of `inner`.
  Array(std::initializer_list<Value> values);
  /// The values, in order.
  explicit Array(std::vector<Value> values);
  // Copies only: an array that was moved from would hold nothing at all.
  /// Shares the elements until one of the two is changed.
  Array(const Array&) = default;
  /// Shares the elements until one of the two is changed.
  Array& operator=(const Array&) = default;
  ~Array() = default;

  /// How many elements there are, nulls included.
  [[nodiscard]] std::size_t size() const noexcept;
  /// Whether there is no element.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// @pre `index < size()`
  [[nodiscard]] const Value& operator[](std::size_t index) const noexcept;
  /// The first element. Valid until the array is changed or destroyed.
  [[nodiscard]] const Value* begin() const noexcept;
  /// After the last element.
  [[nodiscard]] const Value* end() const noexcept;
  /// Appends a value; the storage is copied first when another copy shares it.
  void append(Value value);
  /// As `Value::description`.
  [[nodiscard]] std::string description() const { return value_.description(); }

  /// Equal elements in the same order.
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
  /// A key, which stays valid while the dictionary is neither changed nor destroyed, and its value.
  using Entry = std::pair<std::string_view, Value>;

  /// An empty dictionary.
  Dictionary();
  /// Of several entries with one key the last one counts.
  Dictionary(std::initializer_list<Entry> entries);
  // Copies only: a dictionary that was moved from would hold nothing at all.
  /// Shares the entries until one of the two is changed.
  Dictionary(const Dictionary&) = default;
  /// Shares the entries until one of the two is changed.
  Dictionary& operator=(const Dictionary&) = default;
  ~Dictionary() = default;

  /// How many keys there are, those of nulls included.
  [[nodiscard]] std::size_t size() const noexcept;
  /// Whether there is no key.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// The value stored under `key` (a stored null included), or none.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept;
  /// Whether something is stored under `key`, be it null.
  [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  /// The value stored under `key`, or the null value.
  [[nodiscard]] const Value& operator[](std::string_view key) const noexcept;
  /// The first entry. Valid until the dictionary is changed or destroyed.
  [[nodiscard]] const Entry* begin() const noexcept;
  /// After the last entry.
  [[nodiscard]] const Entry* end() const noexcept;
  /// Stores `value` under `key`, replacing what was there.
  void set(std::string_view key, Value value);
  /// Removes the entry of `key`, if there is one.
  void remove(std::string_view key);
  /// As `Value::description`.
  [[nodiscard]] std::string description() const { return value_.description(); }

  /// The same keys with equal values, in any order.
  friend bool operator==(const Dictionary& a, const Dictionary& b) noexcept {
    return a.value_ == b.value_;
  }

 private:
  friend class Value;
  explicit Dictionary(const Value& value) noexcept : value_(value) {}
  Value value_;
};

/// The types that parts of documents have. `Number` is three kinds, each other type is one.
template <>
KVL_EXPORT std::optional<String> Value::as() const noexcept;
template <>
KVL_EXPORT std::optional<Number> Value::as() const noexcept;
template <>
KVL_EXPORT std::optional<Date> Value::as() const noexcept;
template <>
KVL_EXPORT std::optional<Data> Value::as() const noexcept;
template <>
KVL_EXPORT std::optional<Array> Value::as() const noexcept;
template <>
KVL_EXPORT std::optional<Dictionary> Value::as() const noexcept;

/// The name that `Value::typeName` gives to values that are a `T` (see `Value::as`).
template <class T>
[[nodiscard]] constexpr std::string_view typeNameOf() noexcept;
/// "string".
template <>
constexpr std::string_view typeNameOf<String>() noexcept {
  return "string";
}
/// "number".
template <>
constexpr std::string_view typeNameOf<Number>() noexcept {
  return "number";
}
/// "date".
template <>
constexpr std::string_view typeNameOf<Date>() noexcept {
  return "date";
}
/// "data".
template <>
constexpr std::string_view typeNameOf<Data>() noexcept {
  return "data";
}
/// "array".
template <>
constexpr std::string_view typeNameOf<Array>() noexcept {
  return "array";
}
/// "dictionary".
template <>
constexpr std::string_view typeNameOf<Dictionary>() noexcept {
  return "dictionary";
}

}  // namespace kvl
