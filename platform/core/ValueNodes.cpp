#include "platform/core/ValueNodes.h"

#include "platform/core/ValueAccess.h"

#include <algorithm>

namespace kvl::detail {
namespace {

std::unique_ptr<char[]> copyOf(std::string_view text) {
  auto copy = std::make_unique_for_overwrite<char[]>(text.size());
  std::ranges::copy(text, copy.get());
  return copy;
}

// The containers that nothing refers to any more, one after the other.
class Doomed {
 public:
  void add(const ContainerNode* node) noexcept {
    auto* doomed = const_cast<ContainerNode*>(node);
    doomed->nextDoomed = std::exchange(first_, doomed);
  }

  void destroyAll() noexcept {
    while (first_ != nullptr) {
      auto* node = std::exchange(first_, first_->nextDoomed);
      if (node->kind == Value::Kind::array) {
        destroyOne(static_cast<ArrayNode*>(node));
      } else {
        destroyOne(static_cast<DictionaryNode*>(node));
      }
    }
  }

 private:
  void destroyOne(ArrayNode* node) noexcept {
    for (Value& value : node->values) unlink(value);
    delete node;
  }

  void destroyOne(DictionaryNode* node) noexcept {
    for (auto& [key, value] : node->entries) unlink(value);
    delete node;
  }

  // Leaves no container in `value` for its destructor to destroy within another's.
  void unlink(Value& value) noexcept {
    const auto* node = ValueAccess::takeContainerNode(value);
    if (node != nullptr && node->drop()) add(node);
  }

  ContainerNode* first_ = nullptr;
};

}  // namespace

std::size_t DictionaryNode::positionOf(std::string_view key) const noexcept {
  if (!index_.empty()) {
    const auto found = index_.find(key);
    return found == index_.end() ? entries.size() : found->second;
  }
  const auto found = std::ranges::find(entries, key, &Dictionary::Entry::first);
  return static_cast<std::size_t>(found - entries.begin());
}

void DictionaryNode::set(std::string_view key, Value value) {
  const std::size_t position = positionOf(key);
  if (position == entries.size()) return append(key, std::move(value));
  entries[position].second = std::move(value);
}

void DictionaryNode::append(std::string_view key, Value value) {
  const char* text = keys_.emplace_back(copyOf(key)).get();
  entries.emplace_back(std::string_view(text, key.size()), std::move(value));
  if (!index_.empty()) {
    indexFrom(entries.size() - 1);
  } else if (entries.size() > kUnindexedSize) {
    indexFrom(0);
  }
}

void DictionaryNode::indexFrom(std::size_t position) {
  for (; position < entries.size(); ++position) index_[entries[position].first] = position;
}

void DictionaryNode::remove(std::string_view key) {
  const std::size_t position = positionOf(key);
  if (position == entries.size()) return;
  const auto offset = static_cast<std::ptrdiff_t>(position);
  const bool indexed = index_.erase(key) > 0;
  entries.erase(entries.begin() + offset);
  keys_.erase(keys_.begin() + offset);
  if (indexed) indexFrom(position);
}

void destroy(Value::Kind kind, const Node* node) noexcept {
  switch (kind) {
    case Value::Kind::string:
      delete static_cast<const StringNode*>(node);
      return;
    case Value::Kind::data:
      delete static_cast<const DataNode*>(node);
      return;
    case Value::Kind::object:
      delete static_cast<const ObjectNode*>(node);
      return;
    default:
      break;
  }
  Doomed doomed;
  doomed.add(static_cast<const ContainerNode*>(node));
  doomed.destroyAll();
}

}  // namespace kvl::detail
