#include "platform/core/KeyIndex.h"

#include <algorithm>
#include <functional>

namespace kvl::detail {
namespace {

constexpr IndexedKey kHashMask = ~IndexedKey{0xFFFFFFFF};

IndexedKey hashOf(std::string_view key) noexcept {
  return std::hash<std::string_view>{}(key)&kHashMask;
}

// The part of a sorted index that holds the keys of one hash, from `first` on.
template <class Iterator>
Iterator endOfHash(Iterator first, Iterator last) {
  const IndexedKey hash = *first & kHashMask;
  return std::find_if(first, last, [hash](IndexedKey key) { return (key & kHashMask) != hash; });
}

}  // namespace

std::vector<IndexedKey> makeKeyIndex(std::span<const std::string_view> keys) {
  std::vector<IndexedKey> index(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) index[i] = hashOf(keys[i]) | i;
  std::ranges::sort(index);
  const auto isBefore = [keys](IndexedKey a, IndexedKey b) {
    const auto order = keys[positionIn(a)] <=> keys[positionIn(b)];
    return order == 0 ? a < b : order < 0;
  };
  for (auto first = index.begin(); first != index.end();) {
    const auto last = endOfHash(first, index.end());
    if (last - first > 1) std::sort(first, last, isBefore);
    first = last;
  }
  return index;
}

const Dictionary::Entry* findIndexed(std::span<const Dictionary::Entry> entries,
                                     const IndexedKey* index, std::string_view key) noexcept {
  const IndexedKey hash = hashOf(key);
  const auto isBefore = [&](IndexedKey candidate) {
    const IndexedKey candidateHash = candidate & kHashMask;
    if (candidateHash != hash) return candidateHash < hash;
    return entries[positionIn(candidate)].first < key;
  };
  const std::span<const IndexedKey> all(index, entries.size());
  const auto found = std::ranges::partition_point(all, isBefore);
  if (found == all.end()) return nullptr;
  const auto& entry = entries[positionIn(*found)];
  return entry.first == key ? &entry : nullptr;
}

}  // namespace kvl::detail
