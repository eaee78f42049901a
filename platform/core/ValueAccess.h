// What a value holds: the objects of made values, and access for code that reads whole documents.
#pragma once

#include "platform/core/KeyIndex.h"

#include <local/platform/Value.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kvl::detail {

// An object of a made value, counted by itself. Its kind stands in the value that refers to it.
struct Node {
  mutable std::atomic<std::size_t> references{1};

  void retain() const noexcept { references.fetch_add(1, std::memory_order_relaxed); }
  // Whether that was the last reference.
  [[nodiscard]] bool drop() const noexcept {
    return references.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }
};

struct StringNode final : Node {
  explicit StringNode(std::string_view content) : text(content) {}
  const std::string text;
};

struct DataNode final : Node {
  explicit DataNode(Data content) : data(std::move(content)) {}
  const Data data;
};

struct ObjectNode final : Node {
  explicit ObjectNode(std::shared_ptr<Object> content) : object(std::move(content)) {}
  const std::shared_ptr<Object> object;
};

struct ContainerNode : Node {
  explicit ContainerNode(Value::Kind itsKind) : kind(itsKind) {}
  const Value::Kind kind;
  ContainerNode* nextToDestroy = nullptr;
};

struct ArrayNode final : ContainerNode {
  explicit ArrayNode(std::vector<Value> content)
      : ContainerNode(Value::Kind::array), values(std::move(content)) {}
  std::vector<Value> values;
};

// Entries in order, and the text of their keys; beyond a few of them where each key stands, too.
struct DictionaryNode final : ContainerNode {
  using Entries = std::vector<Dictionary::Entry>;

  DictionaryNode() : ContainerNode(Value::Kind::dictionary) {}

  [[nodiscard]] std::size_t positionOf(std::string_view key) const noexcept;
  void set(std::string_view key, Value value);
  // Adds the entry of a key that is not there yet.
  void append(std::string_view key, Value value);
  void remove(std::string_view key);

  Entries entries;

 private:
  void indexFrom(std::size_t position);

  std::vector<std::unique_ptr<char[]>> keys_;
  // Ordered, not hashed: keys that somebody chose to collide cost no more than others.
  std::map<std::string_view, std::size_t> index_;
};

// Destroys an object that nothing refers to any more, and what only that object kept alive. Depth
// of nesting costs no stack.
void destroy(Value::Kind kind, const Node* node) noexcept;

struct Document;

// A value's head, from the lowest bit: 8 bits kind, 8 bits storage, 16 bits length, 32 bits
// distance. Storage says what the payload of an object means:
// - counted: a `Node`.
// - placed: the value stands in the memory of a parsed document, and is the object itself.
//   The payload is the text of a string, the elements of an array, the entries of a dictionary;
//   the length their number, unless that is `kLong`: then the payload is a `LongContent`, as it is
//   for every dictionary that has an index. The distance from the document's header is in multiples
//   of `kDistanceUnit`.
// - borrowed: the payload is a placed value, whose document this one keeps alive.
class ValueAccess {
 public:
  enum class Storage : std::uint8_t { counted, placed, borrowed };

  struct LongContent {
    const void* start;
    std::size_t size;
    const IndexedKey* index;  // of a dictionary
  };

  static constexpr std::size_t kLong = 0xFFFF;
  static constexpr std::size_t kDistanceUnit = alignof(Value);

  // @name What an object holds
  // @pre the value is of that kind
  // @{
  static std::string_view text(const Value& value) noexcept {
    if (const Value* placed = placedValue(value)) return contentOf<char, std::string_view>(*placed);
    return node<StringNode>(value).text;
  }
  static std::span<const Value> elements(const Value& value) noexcept {
    if (const Value* placed = placedValue(value))
      return contentOf<Value, std::span<const Value>>(*placed);
    return node<ArrayNode>(value).values;
  }
  static std::span<const Dictionary::Entry> entries(const Value& value) noexcept {
    if (const Value* placed = placedValue(value)) return placedEntries(*placed);
    return node<DictionaryNode>(value).entries;
  }
  static const Data& data(const Value& value) noexcept { return node<DataNode>(value).data; }
  static const std::shared_ptr<Object>& object(const Value& value) noexcept {
    return node<ObjectNode>(value).object;
  }
  // @}

  // @name What a value holds by itself
  // @pre the value is of that kind
  // @{
  // Of booleans too: 0 or 1.
  static std::int64_t integer(const Value& value) noexcept { return value.cell_.payload.integer; }
  // Of dates too: seconds since the reference date.
  static double real(const Value& value) noexcept { return value.cell_.payload.real; }
  // @}

  // The entry of `key` or none. @pre the value is a dictionary
  static const Dictionary::Entry* find(const Value& value, std::string_view key) noexcept;

  // What tells an object from others.
  static const void* identity(const Value& value) noexcept {
    return storage(value) == Storage::placed ? &value : value.cell_.payload.pointer;
  }

  // Makes `value` refer to a node of its own that nothing else refers to, a copy if need be, and
  // gives what it referred to before, else null.
  static Value detachArray(Value& value);
  static Value detachDictionary(Value& value);
  // @pre detached
  static ArrayNode& array(Value& value) noexcept { return mutableNode<ArrayNode>(value); }
  static DictionaryNode& dictionary(Value& value) noexcept {
    return mutableNode<DictionaryNode>(value);
  }

  // The counted container that `value` refers to, if it does; the reference is the caller's then,
  // and the value null.
  static const ContainerNode* takeContainerNode(Value& value) noexcept {
    const bool isContainer =
        value.kind() == Value::Kind::array || value.kind() == Value::Kind::dictionary;
    if (!isContainer || storage(value) != Storage::counted) return nullptr;
    const auto* taken = &node<ContainerNode>(value);
    value.cell_ = {};
    return taken;
  }

 private:
  friend class kvl::Value;
  friend class DocumentBuilder;

  static constexpr std::uint64_t headOf(Value::Kind kind, Storage storage) noexcept {
    return static_cast<std::uint64_t>(kind) | static_cast<std::uint64_t>(storage) << 8;
  }
  static Storage storage(const Value& value) noexcept {
    return static_cast<Storage>(value.cell_.head >> 8 & 0xFF);
  }
  static std::size_t length(const Value& value) noexcept { return value.cell_.head >> 16 & 0xFFFF; }
  // The value that stands in a document for this one, or none. @pre the value is an object
  static const Value* placedValue(const Value& value) noexcept {
    if (storage(value) == Storage::counted) return nullptr;
    if (storage(value) == Storage::placed) return &value;
    return static_cast<const Value*>(value.cell_.payload.pointer);
  }
  // @pre placed
  static const Document& documentOf(const Value& value) noexcept {
    const auto distance = (value.cell_.head >> 32) * kDistanceUnit;
    return *reinterpret_cast<const Document*>(reinterpret_cast<const char*>(&value) - distance);
  }
  template <class Element, class Content>
  static Content contentOf(const Value& placed) noexcept {
    const void* start = placed.cell_.payload.pointer;
    if (length(placed) != kLong) return {static_cast<const Element*>(start), length(placed)};
    const LongContent& content = longContentOf(placed);
    return {static_cast<const Element*>(content.start), content.size};
  }
  static const LongContent& longContentOf(const Value& placed) noexcept {
    return *static_cast<const LongContent*>(placed.cell_.payload.pointer);
  }
  static std::span<const Dictionary::Entry> placedEntries(const Value& placed) noexcept {
    return contentOf<Dictionary::Entry, std::span<const Dictionary::Entry>>(placed);
  }
  template <class NodeType>
  static const NodeType& node(const Value& value) noexcept {
    return *static_cast<const NodeType*>(static_cast<const Node*>(value.cell_.payload.pointer));
  }
  template <class NodeType>
  static NodeType& mutableNode(Value& value) noexcept {
    return const_cast<NodeType&>(node<NodeType>(value));
  }
  static bool isDetached(const Value& value) noexcept {
    return storage(value) == Storage::counted &&
           node<Node>(value).references.load(std::memory_order_acquire) == 1;
  }
};

}  // namespace kvl::detail
