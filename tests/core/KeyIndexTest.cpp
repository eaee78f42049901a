#include "platform/core/KeyIndex.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using kvl::Dictionary;
using kvl::Value;
using kvl::detail::findIndexed;
using kvl::detail::makeKeyIndex;

// Two keys of which an index has the same hash: among some ten thousand there are such.
std::pair<std::string, std::string> collidingKeys() {
  std::unordered_map<std::uint32_t, std::string> known;
  for (int i = 0;; ++i) {
    const auto key = "key " + std::to_string(i);
    const auto hash = static_cast<std::uint32_t>(std::hash<std::string_view>{}(key) >> 32);
    const auto [other, isNew] = known.emplace(hash, key);
    if (!isNew) return std::minmax(other->second, key);
  }
}

TEST(KeyIndexTest, KeysThatShareAHashAreFoundInWhateverOrderTheyStand) {
  const auto [smaller, larger] = collidingKeys();
  ASSERT_LT(smaller, larger);
  for (const auto& [first, second] : {std::pair(smaller, larger), std::pair(larger, smaller)}) {
    const std::vector<std::string_view> keys{first, second};
    const std::vector<Dictionary::Entry> entries{{first, Value(1)}, {second, Value(2)}};
    const auto index = makeKeyIndex(keys);
    EXPECT_EQ(findIndexed(entries, index.data(), first), &entries[0]);
    EXPECT_EQ(findIndexed(entries, index.data(), second), &entries[1]);
  }
}

}  // namespace
