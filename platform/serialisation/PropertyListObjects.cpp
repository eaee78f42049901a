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
// Up to so many of them grow in larger steps: they are cheap, and taking leaves along is not.
constexpr std::size_t kFewSlots = std::size_t{1} << 14;
// Bounds the cost of collisions made on purpose; other documents never come near it.
constexpr std::size_t kLongestSearch = 128;

constexpr std::size_t kWordSize = sizeof(std::uint64_t);
constexpr std::size_t kMarkerSize = 1;
// What a count takes that does not fit the marker, with its own marker.
constexpr std::size_t kCountSize = 1 + sizeof(std::uint64_t);
constexpr std::size_t kFirstCount = 15;

constexpr int kHashBits = 32;
constexpr std::uint64_t kMixer = 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio

// Every bit of both counts in the highest bits of what comes out.
std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) noexcept {
  return (std::rotl(hash, 23) ^ word) * kMixer;
}

std::uint32_t highest(std::uint64_t hash) noexcept {
  return static_cast<std::uint32_t>(hash >> kHashBits);
}

template <class Word = std::uint64_t>
std::uint64_t wordAt(const char* text) noexcept {
  Word word;
  std::memcpy(&word, text, sizeof word);
  return word;
}

// Less text than a word, as a word that no other text of this size has.
[[gnu::always_inline]] inline std::uint64_t shortWord(const char* text, std::size_t size) noexcept {
  if (size >= 4) return wordAt<std::uint32_t>(text) | wordAt<std::uint32_t>(text + size - 4) << 32;
  if (size == 0) return 0;
  return wordAt<std::uint8_t>(text) | wordAt<std::uint8_t>(text + size / 2) << 8 |
         wordAt<std::uint8_t>(text + size - 1) << 16;
}

struct ScannedText {
  std::uint32_t hash;
  bool isASCII;
};

// Each byte once for both, the last ones of longer text twice.
ScannedText scan(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  const char* next = text.data();
  const std::size_t size = text.size();
  std::uint64_t seen = size < kWordSize ? shortWord(next, size) : wordAt(next + size - kWordSize);
  std::uint64_t hash = mixed(size, seen);
  for (std::size_t left = size; left > kWordSize; left -= kWordSize) {
    const std::uint64_t word = wordAt(next);
    hash = mixed(hash, word);
    seen |= word;
    next += kWordSize;
  }
  return {highest(hash), (seen & kHighBits) == 0};
}

bool isSameText(std::string_view text, std::string_view other) noexcept {
  const char* a = text.data();
  const char* b = other.data();
  const std::size_t size = text.size();
  if (size < kWordSize) return shortWord(a, size) == shortWord(b, size);
  const char* const last = a + size - kWordSize;
  for (; a < last; a += kWordSize, b += kWordSize) {
    if (wordAt(a) != wordAt(b)) return false;
  }
  return wordAt(last) == wordAt(b - (a - last));
}

std::size_t mostBytesOfMarker(std::size_t count) noexcept {
  return kMarkerSize + (count < kFirstCount ? 0 : count <= UINT8_MAX ? 2 : kCountSize);
}

}  // namespace

PropertyListObjects::PropertyListObjects(const Value& value) : complete_(add(value, 0) != kNone) {}

PropertyListObjects::Number PropertyListObjects::append(const PropertyListObject& object,
                                                        std::size_t mostBytes) {
  if (objects_.size() == kNone) throw std::bad_alloc();
  objects_.push_back(object);
  mostBytes_ += mostBytes;
  return static_cast<Number>(objects_.size() - 1);
}

PropertyListObjects::Number PropertyListObjects::appendContainer(Value::Kind kind,
                                                                 std::size_t references) {
  const std::size_t first = references_.size();
  references_.resize(first + references);
  return append({kind, first, references}, mostBytesOfMarker(references));
}

// The place of an equal leaf, or a free one for it; none when the search takes too long.
template <class IsSame>
[[gnu::always_inline]] inline PropertyListObjects::Slot* PropertyListObjects::findSlot(
    std::uint32_t hash, IsSame isSame) {
  if (free_ == 0) growSlots();
  Slot* const slots = slots_.data();
  const std::size_t last = slots_.size() - 1;
  std::size_t place = hash >> hashShift_;
  for (std::size_t i = 0; i < kLongestSearch; ++i) {
    Slot* const slot = &slots[place];
    if (slot->number == kNone) return slot;
    if (slot->hash == hash && isSame(objects_[slot->number])) return slot;
    place = (place + 1) & last;
  }
  return nullptr;
}

void PropertyListObjects::growSlots() {
  const std::size_t step = slots_.size() < kFewSlots ? 4 : 2;
  const std::size_t size = std::max(kFewestSlots, step * slots_.size());
  const auto old = std::exchange(slots_, std::vector<Slot>(size));
  hashShift_ = static_cast<unsigned>(std::max(0, kHashBits - std::countr_zero(size)));
  free_ = size / 2;
  for (const Slot& slot : old) {
    if (slot.number == kNone) continue;
    if (Slot* place = findSlot(slot.hash, [](const auto&) { return false; })) {
      *place = slot;
      --free_;
    }
  }
}

// The leaf is found there from now on, if there is a place for it.
PropertyListObjects::Number PropertyListObjects::enter(Slot* slot, std::uint32_t hash,
                                                       Number number) {
  if (slot == nullptr) return number;
  *slot = {.hash = hash, .number = number};
  --free_;
  return number;
}

PropertyListObjects::Number PropertyListObjects::addString(std::string_view text) {
  const auto [hash, isASCII] = scan(text);
  const PropertyListObject leaf(Value::Kind::string, text, isASCII);
  Slot* slot = findSlot(hash, [leaf](const PropertyListObject& other) {
    return other.hasFormOf(leaf) && isSameText(leaf.text(), other.text());
  });
  if (slot != nullptr && slot->number != kNone) return slot->number;
  // Of equal strings one is looked at.
  if (!isASCII && !core::isUTF8(text)) return kNone;
  const std::size_t bytes = isASCII ? text.size() : 2 * text.size();
  return enter(slot, hash, append(leaf, mostBytesOfMarker(text.size()) + bytes));
}

PropertyListObjects::Number PropertyListObjects::addNumber(Value::Kind kind, std::uint64_t number) {
  const auto hash = highest(mixed(static_cast<std::uint64_t>(kind), number));
  const PropertyListObject leaf(kind, number);
  Slot* slot = findSlot(hash, [leaf](const PropertyListObject& other) {
    return other.hasFormOf(leaf) && other.number() == leaf.number();
  });
  if (slot != nullptr && slot->number != kNone) return slot->number;
  return enter(slot, hash, append(leaf, kMarkerSize + sizeof number));
}

PropertyListObjects::Number PropertyListObjects::addData(std::string_view bytes) {
  return append({Value::Kind::data, bytes, false}, mostBytesOfMarker(bytes.size()) + bytes.size());
}

PropertyListObjects::Number PropertyListObjects::addArray(const Value& value, std::size_t depth) {
  if (depth == kPropertyListDepth) return kNone;
  const auto elements = ValueAccess::elements(value);
  const Number container = appendContainer(Value::Kind::array, elements.size());
  std::size_t place = objects_[container].number();
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
  std::size_t place = objects_[container].number();
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
    case data:
      return addData(ValueAccess::data(value).text());
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
