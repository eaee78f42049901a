#include "platform/core/ValueAccess.h"

#include <cstring>

namespace kvl {

using detail::ArrayNode;
using detail::DictionaryNode;
using detail::ValueAccess;

namespace detail {
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

}  // namespace

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

}  // namespace detail

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
