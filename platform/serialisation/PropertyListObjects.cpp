#include "platform/serialisation/PropertyListObjects.h"

#include "platform/core/UTF8.h"
#include "platform/core/ValueAccess.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <utility>

namespace kvl::serialisation {
namespace {

using detail::ValueAccess;

constexpr std::size_t kFewestSlots = 256;
// Bounds the cost of collisions made on purpose; other documents never come near it.
constexpr std::size_t kLongestSearch = 128;

constexpr std::uint64_t kWordSize = sizeof(std::uint64_t);

// Every bit of both counts in the lower half of what comes out: reals differ in few of their upper
// bits.
std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) noexcept {
  constexpr std::uint64_t kMixer = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
  hash ^= word;
  hash = (hash ^ hash >> 32) * kMixer;
  return hash ^ hash >> 29;
}

std::uint64_t wordAt(const char* text) noexcept {
  std::uint64_t word;
  std::memcpy(&word, text, kWordSize);
  return word;
}

struct ScannedText {
  std::uint32_t hash;
  bool isASCII;
};

// Each byte once for both, the last ones of longer text twice.
ScannedText scan(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::uint64_t hash = text.size();
  std::uint64_t seen = 0;
  const auto take = [&](std::uint64_t word) {
    hash = mixed(hash, word);
    seen |= word;
  };
  if (text.size() < kWordSize) {
    std::uint64_t word = 0;
    for (const char c : text) word = word << 8 | static_cast<std::uint8_t>(c);
    take(word);
  } else {
    const char* const last = text.data() + text.size() - kWordSize;
    for (const char* next = text.data(); next < last; next += kWordSize) take(wordAt(next));
    take(wordAt(last));
  }
  return {static_cast<std::uint32_t>(hash), (seen & kHighBits) == 0};
}

bool isSameLeaf(const PropertyListObject& a, const PropertyListObject& b) noexcept {
  return a.kind == b.kind && a.number == b.number && a.text() == b.text();
}

}  // namespace

PropertyListObjects::PropertyListObjects(const Value& value) : complete_(add(value, 0) != kNone) {}

PropertyListObjects::Number PropertyListObjects::append(const PropertyListObject& object) {
  if (objects_.size() == kNone) throw std::bad_alloc();
  objects_.push_back(object);
  return static_cast<Number>(objects_.size() - 1);
}

PropertyListObjects::Number PropertyListObjects::appendContainer(Value::Kind kind,
                                                                 std::size_t references) {
  const std::size_t first = references_.size();
  references_.resize(first + references);
  return append({.kind = kind, .number = first, .size = references});
}

// The place of an equal leaf, or a free one for it; none when the search takes too long.
PropertyListObjects::Slot* PropertyListObjects::findSlot(std::uint32_t hash,
                                                         const PropertyListObject& leaf) {
  for (std::size_t i = 0; i < kLongestSearch; ++i) {
    Slot& slot = slots_[(hash + i) & (slots_.size() - 1)];
    if (slot.number == kNone) return &slot;
    if (slot.hash == hash && isSameLeaf(objects_[slot.number], leaf)) return &slot;
  }
  return nullptr;
}

void PropertyListObjects::growSlots() {
  const std::size_t size = std::max(kFewestSlots, 2 * slots_.size());
  const auto old = std::exchange(slots_, std::vector<Slot>(size));
  for (const Slot& slot : old) {
    if (slot.number == kNone) continue;
    if (Slot* place = findSlot(slot.hash, objects_[slot.number])) *place = slot;
  }
}

PropertyListObjects::Number PropertyListObjects::addLeaf(const PropertyListObject& leaf,
                                                         std::uint32_t hash) {
  if (2 * taken_ >= slots_.size()) growSlots();
  Slot* slot = findSlot(hash, leaf);
  if (slot != nullptr && slot->number != kNone) return slot->number;
  // Of equal strings one is looked at.
  if (!leaf.isASCII && !core::isUTF8(leaf.text())) return kNone;
  const Number number = append(leaf);
  if (slot != nullptr) {
    *slot = {.hash = hash, .number = number};
    ++taken_;
  }
  return number;
}

PropertyListObjects::Number PropertyListObjects::addString(std::string_view text) {
  const auto [hash, isASCII] = scan(text);
  return addLeaf(
      {.kind = Value::Kind::string, .isASCII = isASCII, .bytes = text.data(), .size = text.size()},
      hash);
}

PropertyListObjects::Number PropertyListObjects::addNumber(Value::Kind kind, std::uint64_t number) {
  const auto hash = mixed(static_cast<std::uint64_t>(kind), number);
  return addLeaf({.kind = kind, .number = number}, static_cast<std::uint32_t>(hash));
}

PropertyListObjects::Number PropertyListObjects::addArray(const Value& value, std::size_t depth) {
  if (depth == kPropertyListDepth) return kNone;
  const auto elements = ValueAccess::elements(value);
  const Number container = appendContainer(Value::Kind::array, elements.size());
  std::size_t place = objects_[container].number;
  for (const auto& element : elements) {
    const Number number = add(element, depth + 1);
    if (number == kNone) return kNone;
    references_[place++] = number;
  }
  return container;
}

PropertyListObjects::Number PropertyListObjects::addDictionary(const Value& value,
                                                               std::size_t depth) {
  if (depth == kPropertyListDepth) return kNone;
  const auto entries = ValueAccess::entries(value);
  const Number container = appendContainer(Value::Kind::dictionary, 2 * entries.size());
  std::size_t place = objects_[container].number;
  for (const auto& [key, element] : entries) {
    const Number number = addString(key);
    if (number == kNone) return kNone;
    references_[place++] = number;
  }
  for (const auto& [key, element] : entries) {
    const Number number = add(element, depth + 1);
    if (number == kNone) return kNone;
    references_[place++] = number;
  }
  return container;
}

// `depth` is the number of containers around the value.
PropertyListObjects::Number PropertyListObjects::add(const Value& value, std::size_t depth) {
  using enum Value::Kind;
  switch (value.kind()) {
    case array:
      return addArray(value, depth);
    case dictionary:
      return addDictionary(value, depth);
    case string:
      return addString(ValueAccess::text(value));
    case data: {
      const auto bytes = ValueAccess::data(value).text();
      return append({.kind = data, .bytes = bytes.data(), .size = bytes.size()});
    }
    case boolean:
    case integer:
      return addNumber(value.kind(), static_cast<std::uint64_t>(ValueAccess::integer(value)));
    case real:
    case date:
      return addNumber(value.kind(), std::bit_cast<std::uint64_t>(ValueAccess::real(value)));
    case null:
    case object:
      break;
  }
  return kNone;
}

}  // namespace kvl::serialisation
