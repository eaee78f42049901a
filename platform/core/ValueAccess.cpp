// The objects of values: how they are searched, copied and destroyed.
#include "platform/core/ValueAccess.h"

#include <algorithm>
#include <cstring>

namespace kvl::detail {
namespace {

using Entries = std::span<const Dictionary::Entry>;

template <class Matches>
const Dictionary::Entry* findIf(Entries entries, std::size_t size, Matches matches) noexcept {
  for (const Dictionary::Entry& entry : entries)
    if (entry.first.size() == size && matches(entry.first)) return &entry;
  return nullptr;
}

// Of a key of one to two words: its first and its last word are all of it.
template <class Word>
const Dictionary::Entry* findShort(Entries entries, std::string_view key) noexcept {
  const auto wordOf = [](std::string_view text, std::size_t place) {
    Word word;
    std::memcpy(&word, text.data() + place, sizeof(word));
    return word;
  };
  const std::size_t last = key.size() - sizeof(Word);
  return findIf(
      entries, key.size(),
      [=, first = wordOf(key, 0), second = wordOf(key, last)](std::string_view candidate) {
        return wordOf(candidate, 0) == first && wordOf(candidate, last) == second;
      });
}

// Keys are short: a call of memcmp(3) for each costs more than reading them.
const Dictionary::Entry* findUnindexed(Entries entries, std::string_view key) noexcept {
  const std::size_t size = key.size();
  if (size > 2 * sizeof(std::uint64_t))
    return findIf(entries, size, [key](std::string_view candidate) { return candidate == key; });
  if (size >= sizeof(std::uint64_t)) return findShort<std::uint64_t>(entries, key);
  if (size >= sizeof(std::uint32_t)) return findShort<std::uint32_t>(entries, key);
  if (size >= sizeof(std::uint16_t)) return findShort<std::uint16_t>(entries, key);
  if (size == 1) return findShort<std::uint8_t>(entries, key);
  return findIf(entries, 0, [](std::string_view) { return true; });
}

std::unique_ptr<char[]> copyOf(std::string_view text) {
  auto copy = std::make_unique_for_overwrite<char[]>(text.size());
  std::ranges::copy(text, copy.get());
  return copy;
}

// The containers that nothing refers to any more, one after the other.
class DestructionList {
 public:
  void add(const ContainerNode* node) noexcept {
    auto* added = const_cast<ContainerNode*>(node);
    added->nextToDestroy = std::exchange(first_, added);
  }

  void destroyAll() noexcept {
    while (first_ != nullptr) {
      auto* node = std::exchange(first_, first_->nextToDestroy);
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
  DestructionList list;
  list.add(static_cast<const ContainerNode*>(node));
  list.destroyAll();
}

const Dictionary::Entry* ValueAccess::find(const Value& value, std::string_view key) noexcept {
  const Value* placed = placedValue(value);
  if (placed == nullptr) {
    const auto& dictionary = node<DictionaryNode>(value);
    const std::size_t position = dictionary.positionOf(key);
    return position < dictionary.entries.size() ? &dictionary.entries[position] : nullptr;
  }
  const auto entries = placedEntries(*placed);
  return length(*placed) == kLong ? findIndexed(entries, longContentOf(*placed).index, key)
                                  : findUnindexed(entries, key);
}

Value ValueAccess::detachArray(Value& value) {
  if (isDetached(value)) return {};
  const auto shared = elements(value);
  const auto* copy = new ArrayNode(std::vector<Value>(shared.begin(), shared.end()));
  return std::exchange(value, Value(Value::Kind::array, copy));
}

Value ValueAccess::detachDictionary(Value& value) {
  if (isDetached(value)) return {};
  auto copy = std::make_unique<DictionaryNode>();
  for (const auto& [key, content] : entries(value)) copy->append(key, content);
  return std::exchange(value, Value(Value::Kind::dictionary, copy.release()));
}

}  // namespace kvl::detail
