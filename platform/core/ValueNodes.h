// The objects of made values, each counted by itself.
#pragma once

#include <local/platform/Value.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::detail {

// What objects share. What an object is stands in the value that refers to it.
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
  ContainerNode* nextDoomed = nullptr;
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

}  // namespace kvl::detail
