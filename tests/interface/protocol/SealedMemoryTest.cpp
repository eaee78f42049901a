#include "platform/interface/protocol/SealedMemory.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/ProcessFigures.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <limits>

namespace {

using kvl::Bytes;
using kvl::interface::Descriptor;
using kvl::interface::drawableFile;
using kvl::interface::MappedBytes;
using kvl::interface::sealedData;
using kvl::interface::sealedFile;

Descriptor memoryFile(std::size_t size, int seals) {
  Descriptor file(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
  EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, seals), 0);
  return file;
}

constexpr int kAllSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

TEST(SealedMemoryTest, BytesArriveAndNobodyChangesThem) {
  const Bytes bytes(100'000, 7);
  const auto file = sealedFile(bytes);
  ASSERT_TRUE(file);
  EXPECT_EQ(fcntl(file->get(), F_GET_SEALS) & kAllSeals, kAllSeals);
  EXPECT_NE(fcntl(file->get(), F_GETFD) & FD_CLOEXEC, 0);
  const auto mapped = MappedBytes::readable(*file, bytes.size());
  EXPECT_TRUE(std::ranges::equal(mapped.bytes(), bytes));
  EXPECT_EQ(pwrite(file->get(), "x", 1, 0), -1);
  EXPECT_EQ(ftruncate(file->get(), 5), -1);
  EXPECT_EQ(ftruncate(file->get(), 200'000), -1);
  EXPECT_TRUE(MappedBytes::writable(*file, bytes.size()).pixels().empty());
}

TEST(SealedMemoryTest, WhatWasDrawnBecomesData) {
  constexpr std::size_t kSize = 50'000;
  const auto file = drawableFile(kSize);
  ASSERT_TRUE(file);
  EXPECT_EQ(ftruncate(file->get(), 5), -1);
  EXPECT_EQ(ftruncate(file->get(), kSize + 1), -1);
  {
    const auto mapped = MappedBytes::writable(*file, kSize);
    ASSERT_EQ(mapped.pixels().size(), kSize);
    EXPECT_EQ(std::ranges::count(mapped.pixels(), 0), std::ptrdiff_t{kSize});
    mapped.pixels()[kSize - 1] = 9;
  }
  const auto data = sealedData(*file, kSize);
  ASSERT_TRUE(data);
  ASSERT_EQ(data->size(), kSize);
  EXPECT_EQ(data->bytes()[0], 0);
  EXPECT_EQ(data->bytes()[kSize - 1], 9);
  EXPECT_EQ(pwrite(file->get(), "x", 1, 0), -1);
}

TEST(SealedMemoryTest, DataOutlivesItsFile) {
  auto file = drawableFile(5000);
  ASSERT_TRUE(file);
  const auto before = kvltest::descriptorCount();
  const auto data = sealedData(*file, 5000);
  file.reset();
  EXPECT_EQ(kvltest::descriptorCount(), before - 1);
  ASSERT_TRUE(data);
  const auto copy = data->slice(4000, 1000);
  EXPECT_EQ(copy.bytes()[999], 0);
}

TEST(SealedMemoryTest, AFileThatSomebodyMayStillDrawIntoIsNotSealed) {
  const auto file = drawableFile(5000);
  ASSERT_TRUE(file);
  auto mapped = MappedBytes::writable(*file, 5000);
  EXPECT_FALSE(sealedData(*file, 5000));
  mapped = {};
  EXPECT_TRUE(sealedData(*file, 5000));
}

// Seals against later mappings leave the one that there is.
TEST(SealedMemoryTest, SealsOfTheOtherSideDoNotHideThatItDraws) {
  for (const int seals : {F_SEAL_FUTURE_WRITE, F_SEAL_FUTURE_WRITE | F_SEAL_SEAL, F_SEAL_SEAL}) {
    const auto file = drawableFile(5000);
    ASSERT_TRUE(file);
    const auto mapped = MappedBytes::writable(*file, 5000);
    ASSERT_EQ(fcntl(file->get(), F_ADD_SEALS, seals), 0);
    EXPECT_FALSE(sealedData(*file, 5000)) << seals;
  }
}

TEST(SealedMemoryTest, AFileOfAnotherSizeIsRefused) {
  for (const std::size_t size : {4999, 5001, 0}) {
    const auto drawn = drawableFile(5000);
    const auto bytes = sealedFile(Bytes(5000));
    ASSERT_TRUE(drawn && bytes);
    EXPECT_TRUE(MappedBytes::readable(*bytes, size).bytes().empty()) << size;
    EXPECT_TRUE(MappedBytes::writable(*drawn, size).pixels().empty()) << size;
    EXPECT_FALSE(sealedData(*drawn, size)) << size;
  }
}

TEST(SealedMemoryTest, AFileThatMayChangeIsRefused) {
  for (const int left : {F_SEAL_WRITE, F_SEAL_GROW, F_SEAL_SHRINK, F_SEAL_SEAL}) {
    const auto file = memoryFile(5000, kAllSeals & ~left);
    EXPECT_TRUE(MappedBytes::readable(file, 5000).bytes().empty()) << left;
  }
  EXPECT_FALSE(MappedBytes::readable(memoryFile(5000, kAllSeals), 5000).bytes().empty());
  EXPECT_TRUE(MappedBytes::writable(memoryFile(5000, F_SEAL_GROW), 5000).pixels().empty());
  EXPECT_TRUE(MappedBytes::writable(memoryFile(5000, F_SEAL_SHRINK), 5000).pixels().empty());
}

TEST(SealedMemoryTest, WhatIsNoMemoryFileIsRefused) {
  const Descriptor device(open("/dev/zero", O_RDWR | O_CLOEXEC));
  const Descriptor none;
  for (const auto* file : {&device, &none}) {
    EXPECT_TRUE(MappedBytes::readable(*file, 5000).bytes().empty());
    EXPECT_TRUE(MappedBytes::writable(*file, 5000).pixels().empty());
    EXPECT_FALSE(sealedData(*file, 5000));
  }
}

TEST(SealedMemoryTest, NothingHasNoFile) {
  EXPECT_FALSE(sealedFile({}));
  EXPECT_FALSE(drawableFile(0));
  EXPECT_FALSE(drawableFile(std::numeric_limits<std::size_t>::max()));
}

// Which would end the process by a signal.
TEST(SealedMemoryTest, AFileBeyondTheProcessesLimitIsNotMade) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit few = before;
  few.rlim_cur = 5000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &few), 0);
  const bool made = sealedFile(Bytes(5000)) && drawableFile(5000);
  const bool tooLong = sealedFile(Bytes(5001)) || drawableFile(5001);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(made);
  EXPECT_FALSE(tooLong);
}

TEST(SealedMemoryTest, WithoutDescriptorsThereIsNoFile) {
  const kvltest::NoDescriptors none;
  EXPECT_FALSE(sealedFile(Bytes(5000)));
  EXPECT_FALSE(drawableFile(5000));
}

TEST(SealedMemoryTest, MovingKeepsOneMapping) {
  const auto file = sealedFile(Bytes(5000, 3));
  ASSERT_TRUE(file);
  MappedBytes third;
  {
    auto first = MappedBytes::readable(*file, 5000);
    MappedBytes second(std::move(first));
    third = std::move(second);
  }
  EXPECT_EQ(third.bytes()[4999], 3);
}

}  // namespace
