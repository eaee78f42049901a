#include "platform/urlloading/BodyMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kvl::urlloading {
namespace {

constexpr std::size_t kSize = 100'000;

// A body of this size and letter, in the memory that there is for it.
Data body(BodyMemory& memory, std::size_t size, char letter = 'x') {
  Bytes bytes = memory.take(size);
  bytes.assign(size, static_cast<std::uint8_t>(letter));
  return memory.lend(std::move(bytes));
}

TEST(BodyMemoryTest, ABlockThatNobodyHoldsServesAgain) {
  const auto memory = std::make_shared<BodyMemory>();
  const std::uint8_t* const first = body(*memory, kSize).data();
  EXPECT_EQ(body(*memory, kSize).data(), first);
  EXPECT_EQ(body(*memory, kSize - 1).data(), first);
}

TEST(BodyMemoryTest, ABodyThatIsHeldStaysAsItIs) {
  const auto memory = std::make_shared<BodyMemory>();
  std::optional<Data> held = body(*memory, kSize, 'a');
  const Data part = held->slice(10, 20);
  held.reset();
  const Data next = body(*memory, kSize, 'b');
  EXPECT_EQ(part.text(), std::string(20, 'a'));
  EXPECT_EQ(next.text(), std::string(kSize, 'b'));
}

TEST(BodyMemoryTest, ASmallBodyDoesNotHoldALargeBlock) {
  const auto memory = std::make_shared<BodyMemory>();
  static_cast<void>(body(*memory, 8 * BodyMemory::kSmallestBlock));
  EXPECT_LE(memory->take(BodyMemory::kSmallestBlock).capacity(), 2 * BodyMemory::kSmallestBlock);
  EXPECT_EQ(memory->take(10).capacity(), 10U);
}

TEST(BodyMemoryTest, OnlySoMuchIsKept) {
  const auto memory = std::make_shared<BodyMemory>();
  constexpr std::size_t kHalf = BodyMemory::kMostKept / 2;
  std::vector<Data> bodies;
  for (int i = 0; i < 3; ++i) bodies.push_back(body(*memory, kHalf));
  EXPECT_EQ(memory->kept(), 0U);
  bodies.clear();
  EXPECT_EQ(memory->kept(), BodyMemory::kMostKept);
  static_cast<void>(body(*memory, 2 * BodyMemory::kMostKept));
  EXPECT_EQ(memory->kept(), BodyMemory::kMostKept);
  const Data next = body(*memory, kHalf);
  EXPECT_EQ(memory->kept(), kHalf);
}

TEST(BodyMemoryTest, ABodyMayOutliveTheMemoryItCameFrom) {
  auto memory = std::make_shared<BodyMemory>();
  const Data held = body(*memory, kSize, 'a');
  memory.reset();
  EXPECT_EQ(held.text(), std::string(kSize, 'a'));
}

TEST(BodyMemoryTest, BodiesMayGoOnAnyThread) {
  const auto memory = std::make_shared<BodyMemory>();
  std::vector<std::thread> threads;
  for (const char letter : {'a', 'b', 'c'}) {
    threads.emplace_back([&memory, letter] {
      for (int i = 0; i < 200; ++i) {
        const Data held = body(*memory, kSize, letter);
        EXPECT_EQ(held.bytes().front(), letter);
        EXPECT_EQ(held.bytes().back(), letter);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kvl::urlloading
