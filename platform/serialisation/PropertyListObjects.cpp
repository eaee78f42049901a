#include "platform/serialisation/PropertyListObjects.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace kvl::serialisation {
namespace {

constexpr std::size_t kFewestSlots = 64;
// Bounds the cost of collisions made on purpose; other documents never come near it.
constexpr std::size_t kLongestSearch = 128;

std::size_t hashOf(const PropertyListLeaf& leaf) {
  if (leaf.kind == Value::Kind::string) return std::hash<std::string_view>{}(leaf.text);
  constexpr std::uint64_t kMixer = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
  const std::uint64_t mixed = (leaf.bits ^ static_cast<std::uint64_t>(leaf.kind)) * kMixer;
  return mixed ^ mixed >> 32;
}

PropertyListLeaf leafOf(const Value& value) {
  using enum Value::Kind;
  PropertyListLeaf leaf{.kind = value.kind(), .text = {}};
  if (leaf.kind == string) {
    leaf.text = *value.string();
  } else if (leaf.kind == real) {
    leaf.bits = std::bit_cast<std::uint64_t>(*value.real());
  } else if (leaf.kind == date) {
    leaf.bits = std::bit_cast<std::uint64_t>(value.date()->secondsSinceReferenceDate());
  } else {
    leaf.bits = static_cast<std::uint64_t>(*value.integer());
  }
  return leaf;
}

}  // namespace

std::size_t PropertyListObjects::append(const PropertyListObject& object) {
  objects_.push_back(object);
  return objects_.size() - 1;
}

std::size_t PropertyListObjects::appendContainer(const Value& value, std::size_t references) {
  const std::size_t first = references_.size();
  references_.resize(first + references);
  return append({.leaf = {.kind = value.kind(), .text = {}},
                 .value = &value,
                 .firstReference = first,
                 .references = references});
}

// The place of an equal leaf, or a free one for it; none when the search takes too long.
PropertyListObjects::Slot* PropertyListObjects::findSlot(std::size_t hash,
                                                         const PropertyListLeaf& leaf) {
  for (std::size_t i = 0; i < kLongestSearch; ++i) {
    Slot& slot = slots_[(hash + i) & (slots_.size() - 1)];
    if (slot.number == kFree) return &slot;
    if (slot.hash == hash && objects_[slot.number].leaf == leaf) return &slot;
  }
  return nullptr;
}

void PropertyListObjects::growSlots() {
  const std::size_t size = std::max(kFewestSlots, 2 * slots_.size());
  const auto old = std::exchange(slots_, std::vector<Slot>(size));
  for (const Slot& slot : old) {
    if (slot.number == kFree) continue;
    if (Slot* place = findSlot(slot.hash, objects_[slot.number].leaf)) *place = slot;
  }
}

std::size_t PropertyListObjects::addLeaf(const PropertyListLeaf& leaf) {
  if (2 * taken_ >= slots_.size()) growSlots();
  const std::size_t hash = hashOf(leaf);
  Slot* slot = findSlot(hash, leaf);
  if (slot == nullptr) return append({.leaf = leaf});
  if (slot->number == kFree) {
    *slot = {.hash = hash, .number = append({.leaf = leaf})};
    ++taken_;
  }
  return slot->number;
}

std::size_t PropertyListObjects::addArray(const Value& value) {
  const Array array = *value.array();
  const std::size_t number = appendContainer(value, array.size());
  std::size_t place = objects_[number].firstReference;
  for (const auto& element : array) {
    const std::size_t reference = add(element);
    references_[place++] = reference;
  }
  return number;
}

std::size_t PropertyListObjects::addDictionary(const Value& value) {
  const Dictionary dictionary = *value.dictionary();
  const std::size_t number = appendContainer(value, 2 * dictionary.size());
  std::size_t place = objects_[number].firstReference;
  for (const auto& [key, element] : dictionary) {
    references_[place++] = addLeaf({.kind = Value::Kind::string, .text = key});
  }
  for (const auto& [key, element] : dictionary) {
    const std::size_t reference = add(element);
    references_[place++] = reference;
  }
  return number;
}

std::size_t PropertyListObjects::add(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::array:
      return addArray(value);
    case Value::Kind::dictionary:
      return addDictionary(value);
    case Value::Kind::data:
      return append({.leaf = {.kind = Value::Kind::data, .text = {}}, .value = &value});
    default:
      return addLeaf(leafOf(value));
  }
}

}  // namespace kvl::serialisation
