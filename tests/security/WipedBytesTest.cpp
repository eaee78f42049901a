#include "platform/security/WipedBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace kvl::security {
namespace {

constexpr std::size_t kSize = 1200;
constexpr std::uint8_t kSecretByte = 0xA5;

bool isWiped(const std::uint8_t* memory, std::size_t size) {
  return std::all_of(memory, memory + size, [](std::uint8_t byte) { return byte == 0; });
}

int blocksGivenBack = 0;
int wipedBlocks = 0;

// Looks at every block that is given back to it.
template <class T>
struct WatchingAllocator : std::allocator<T> {
  void deallocate(T* memory, std::size_t count) noexcept {
    ++blocksGivenBack;
    wipedBlocks += isWiped(memory, count);
    std::allocator<T>::deallocate(memory, count);
  }
};
using WatchedBytes = std::vector<std::uint8_t, WipingAllocator<std::uint8_t, WatchingAllocator>>;

class WipedBytesTest : public testing::Test {
 protected:
  void SetUp() override {
    blocksGivenBack = 0;
    wipedBlocks = 0;
  }
};

TEST_F(WipedBytesTest, WipeLeavesZeros) {
  std::array<std::uint8_t, 64> memory;
  memory.fill(kSecretByte);
  wipe(memory.data(), memory.size());
  EXPECT_TRUE(isWiped(memory.data(), memory.size()));
}

TEST_F(WipedBytesTest, BytesAreWipedWhenTheContainerGoes) {
  {
    const WatchedBytes bytes(kSize, kSecretByte);
  }
  EXPECT_EQ(blocksGivenBack, 1);
  EXPECT_EQ(wipedBlocks, 1);
}

TEST_F(WipedBytesTest, BytesAreWipedWhenTheContainerGrows) {
  WatchedBytes bytes(kSize, kSecretByte);
  bytes.resize(bytes.capacity() + 1, kSecretByte);
  EXPECT_EQ(blocksGivenBack, 1);
  EXPECT_EQ(wipedBlocks, 1);
}

TEST_F(WipedBytesTest, BytesAreWipedWhenOthersAreAssigned) {
  WatchedBytes bytes(kSize, kSecretByte);
  bytes = WatchedBytes(2 * kSize, kSecretByte);
  EXPECT_EQ(blocksGivenBack, 1);
  EXPECT_EQ(wipedBlocks, 1);
}

}  // namespace
}  // namespace kvl::security
