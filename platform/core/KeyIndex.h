// Where keys stand in a large dictionary that was read.
#pragma once

#include <local/platform/Value.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace kvl::detail {

// Up to this many entries, comparing the keys one by one is as fast as an index.
inline constexpr std::size_t kUnindexedSize = 16;

// A key's hash in the upper half, its position in the lower. An index is sorted by hash, and keys
// of equal hash by their text, so that keys chosen to collide cost only a few comparisons each.
using IndexedKey = std::uint64_t;

[[nodiscard]] constexpr std::size_t positionIn(IndexedKey key) noexcept {
  return key & 0xFFFFFFFF;
}

// The index of `keys`; equal ones stand in it in the order of their positions.
[[nodiscard]] std::vector<IndexedKey> makeKeyIndex(std::span<const std::string_view> keys);

// The entry of `key`, or none. `index` is the index of the entries' keys.
[[nodiscard]] const Dictionary::Entry* findIndexed(std::span<const Dictionary::Entry> entries,
                                                   const IndexedKey* index,
                                                   std::string_view key) noexcept;

}  // namespace kvl::detail
