#include <local/platform/Value.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cmath>
#include <limits>
#include <unordered_map>

namespace kvl {
namespace detail {

// What a heap value shares. The kind lives in the Value that points here.
struct Node {
  mutable std::atomic<std::uint32_t> references{1};
  virtual ~Node() = default;

 protected:
  Node() = default;
  Node(const Node&) noexcept {}
  Node& operator=(const Node&) = delete;
};

void retain(const Node* node) noexcept {
  node->references.fetch_add(1, std::memory_order_relaxed);
}

void release(const Node* node) noexcept {
  if (node->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete node;
}

}  // namespace detail

namespace {

struct StringNode final : detail::Node {
  explicit StringNode(std::string_view content) : text(content) {}
  const std::string text;
};

struct DataNode final : detail::Node {
  explicit DataNode(Data content) : data(std::move(content)) {}
  const Data data;
};

struct ArrayNode final : detail::Node {
  explicit ArrayNode(std::vector<Value> content = {}) : values(std::move(content)) {}
  std::vector<Value> values;
};

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return std::hash<std::string_view>{}(text);
  }
};

// Entries in order; beyond a few of them an index from key to position as well.
struct DictionaryNode final : detail::Node {
  static constexpr std::size_t kIndexedSize = 16;

  std::vector<Dictionary::Entry> entries;
  std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>> index;

  [[nodiscard]] std::size_t positionOf(std::string_view key) const noexcept {
    if (!index.empty()) {
      const auto found = index.find(key);
      return found == index.end() ? entries.size() : found->second;
    }
    const auto found = std::ranges::find(entries, key, &Dictionary::Entry::first);
    return static_cast<std::size_t>(found - entries.begin());
  }

  void rebuildIndex() {
    index.clear();
    if (entries.size() <= kIndexedSize) return;
    for (std::size_t i = 0; i < entries.size(); ++i) index.emplace(entries[i].first, i);
  }

  void set(std::string_view key, Value value) {
    const auto position = positionOf(key);
    if (position < entries.size()) {
      entries[position].second = std::move(value);
      return;
    }
    entries.emplace_back(std::string(key), std::move(value));
    if (!index.empty()) {
      index.emplace(std::string(key), position);
    } else if (entries.size() > kIndexedSize) {
      rebuildIndex();
    }
  }

  void remove(std::string_view key) {
    const auto position = positionOf(key);
    if (position == entries.size()) return;
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
    rebuildIndex();
  }
};

template <class NodeType>
const NodeType& as(const detail::Node* node) noexcept {
  return static_cast<const NodeType&>(*node);
}

// A node that only the caller refers to: `node` itself, or a copy that takes its place.
template <class NodeType>
NodeType& uniquely(const detail::Node*& node) {
  if (node->references.load(std::memory_order_acquire) != 1) {
    const auto* copy = new NodeType(as<NodeType>(node));
    detail::release(std::exchange(node, copy));
  }
  return const_cast<NodeType&>(as<NodeType>(node));
}

std::int64_t clampedInteger(double real) noexcept {
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(real)) return 0;
  if (real >= limit) return std::numeric_limits<std::int64_t>::max();
  if (real < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

void appendReal(std::string& text, double real) {
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real);
  text.append(buffer.data(), result.ptr);
}

bool isBareWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_' || c == '.' || c == '-' || c == '/' || c == ':';
  });
}

void appendText(std::string& out, std::string_view text) {
  if (isBareWord(text)) {
    out += text;
    return;
  }
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

void appendData(std::string& out, const Data& data) {
  out += "<" + std::to_string(data.size()) + " bytes>";
}

void appendDescription(std::string& out, const Value& value);

void appendArray(std::string& out, const Array& array) {
  out += '(';
  for (const auto* separator = ""; const auto& element : array) {
    out += std::exchange(separator, ", ");
    appendDescription(out, element);
  }
  out += ')';
}

void appendDictionary(std::string& out, const Dictionary& dictionary) {
  out += '{';
  for (const auto* separator = ""; const auto& [key, value] : dictionary) {
    out += std::exchange(separator, "; ");
    appendText(out, key);
    out += " = ";
    appendDescription(out, value);
  }
  out += '}';
}

void appendDescription(std::string& out, const Value& value) {
  using enum Value::Kind;
  switch (value.kind()) {
    case null:
      out += "<null>";
      break;
    case boolean:
      out += *value.boolean() ? "true" : "false";
      break;
    case integer:
      out += std::to_string(*value.integer());
      break;
    case real:
      appendReal(out, *value.real());
      break;
    case date:
      out += value.date()->description();
      break;
    case string:
      appendText(out, *value.string());
      break;
    case data:
      appendData(out, *value.data());
      break;
    case array:
      appendArray(out, *value.array());
      break;
    case dictionary:
      appendDictionary(out, *value.dictionary());
      break;
  }
}

bool sameEntries(const DictionaryNode& a, const DictionaryNode& b) {
  if (a.entries.size() != b.entries.size()) return false;
  return std::ranges::all_of(a.entries, [&b](const Dictionary::Entry& entry) {
    const auto position = b.positionOf(entry.first);
    return position < b.entries.size() && b.entries[position].second == entry.second;
  });
}

}  // namespace

Value::Value(std::string_view text) : Value(Kind::string, new StringNode(text)) {}
Value::Value(Data data) : Value(Kind::data, new DataNode(std::move(data))) {}
Value::Value(const Array& array) noexcept : Value(array.value_) {}
Value::Value(const Dictionary& dictionary) noexcept : Value(dictionary.value_) {}

std::optional<bool> Value::boolean() const noexcept {
  if (kind_ == Kind::real) return payload_.real != 0;
  if (isNumber()) return payload_.integer != 0;
  return std::nullopt;
}

std::optional<std::int64_t> Value::integer() const noexcept {
  if (kind_ == Kind::real) return clampedInteger(payload_.real);
  if (isNumber()) return payload_.integer;
  return std::nullopt;
}

std::optional<double> Value::real() const noexcept {
  if (kind_ == Kind::real) return payload_.real;
  if (isNumber()) return static_cast<double>(payload_.integer);
  return std::nullopt;
}

std::optional<Date> Value::date() const noexcept {
  if (kind_ != Kind::date) return std::nullopt;
  return Date(payload_.real);
}

std::optional<std::string_view> Value::string() const noexcept {
  if (kind_ != Kind::string) return std::nullopt;
  return as<StringNode>(payload_.node).text;
}

std::optional<Data> Value::data() const noexcept {
  if (kind_ != Kind::data) return std::nullopt;
  return as<DataNode>(payload_.node).data;
}

std::optional<Array> Value::array() const noexcept {
  if (kind_ != Kind::array) return std::nullopt;
  return Array(*this);
}

std::optional<Dictionary> Value::dictionary() const noexcept {
  if (kind_ != Kind::dictionary) return std::nullopt;
  return Dictionary(*this);
}

bool Value::isSameObject(const Value& other) const noexcept {
  if (kind_ != other.kind_) return false;
  return isObject() ? payload_.node == other.payload_.node : *this == other;
}

bool operator==(const Value& a, const Value& b) noexcept {
  using enum Value::Kind;
  if (a.kind_ != b.kind_) return false;
  if (a.isObject() && a.payload_.node == b.payload_.node) return true;
  switch (a.kind_) {
    case null:
      return true;
    case boolean:
    case integer:
      return a.payload_.integer == b.payload_.integer;
    case real:
    case date:
      return a.payload_.real == b.payload_.real;
    case string:
      return a.string() == b.string();
    case data:
      return as<DataNode>(a.payload_.node).data == as<DataNode>(b.payload_.node).data;
    case array:
      return as<ArrayNode>(a.payload_.node).values == as<ArrayNode>(b.payload_.node).values;
    case dictionary:
      return sameEntries(as<DictionaryNode>(a.payload_.node), as<DictionaryNode>(b.payload_.node));
  }
  return false;
}

std::string Value::description() const {
  std::string text;
  if (kind_ == Kind::string) return std::string(*string());
  appendDescription(text, *this);
  return text;
}

Array::Array() : Array(std::vector<Value>{}) {}
Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}
Array::Array(std::vector<Value> values)
    : value_(Value::Kind::array, new ArrayNode(std::move(values))) {}

std::size_t Array::size() const noexcept {
  return as<ArrayNode>(value_.payload_.node).values.size();
}
const Value& Array::operator[](std::size_t index) const noexcept {
  return begin()[index];
}
const Value* Array::begin() const noexcept {
  return as<ArrayNode>(value_.payload_.node).values.data();
}
const Value* Array::end() const noexcept {
  return begin() + size();
}
void Array::append(Value value) {
  uniquely<ArrayNode>(value_.payload_.node).values.push_back(std::move(value));
}

Dictionary::Dictionary() : value_(Value::Kind::dictionary, new DictionaryNode) {}
Dictionary::Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries)
    : Dictionary() {
  for (const auto& [key, value] : entries) set(key, value);
}

std::size_t Dictionary::size() const noexcept {
  return as<DictionaryNode>(value_.payload_.node).entries.size();
}
const Value* Dictionary::find(std::string_view key) const noexcept {
  const auto& node = as<DictionaryNode>(value_.payload_.node);
  const auto position = node.positionOf(key);
  return position < node.entries.size() ? &node.entries[position].second : nullptr;
}
const Value& Dictionary::operator[](std::string_view key) const noexcept {
  static const Value null;
  const Value* value = find(key);
  return value != nullptr ? *value : null;
}
const Dictionary::Entry* Dictionary::begin() const noexcept {
  return as<DictionaryNode>(value_.payload_.node).entries.data();
}
const Dictionary::Entry* Dictionary::end() const noexcept {
  return begin() + size();
}
void Dictionary::set(std::string_view key, Value value) {
  uniquely<DictionaryNode>(value_.payload_.node).set(key, std::move(value));
}
void Dictionary::remove(std::string_view key) {
  uniquely<DictionaryNode>(value_.payload_.node).remove(key);
}

}  // namespace kvl
