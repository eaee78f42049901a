#include <local/KVLNotaryASN1.h>

#include <gtest/gtest.h>

#include <array>

namespace {

using kvl::Bytes;

constexpr std::int64_t kTooLong = -25302;

void expectTooLong(const std::optional<kvl::Error>& error) {
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSPOSIXErrorDomain, kTooLong));
  EXPECT_TRUE(error->userInfo().empty());
}

TEST(DERWriterTest, BeginsEmpty) {
  EXPECT_TRUE(KVLNotaryASN1().data().empty());
}

TEST(DERWriterTest, WritesTheShortestLengths) {
  const std::pair<std::uint64_t, Bytes> table[] = {
      {0, {0x00}},
      {1, {0x01}},
      {127, {0x7f}},
      {128, {0x81, 0x80}},
      {255, {0x81, 0xff}},
      {256, {0x82, 0x01, 0x00}},
      {32767, {0x82, 0x7f, 0xff}},
  };
  for (const auto& [length, bytes] : table) {
    KVLNotaryASN1 writer;
    EXPECT_FALSE(writer.appendLength(length));
    EXPECT_EQ(writer.data(), bytes) << length;
  }
}

TEST(DERWriterTest, RefusesLengthsFrom32768On) {
  for (const std::uint64_t length : {std::uint64_t{32768}, std::uint64_t{65535}, UINT64_MAX}) {
    KVLNotaryASN1 writer;
    expectTooLong(writer.appendLength(length));
    EXPECT_TRUE(writer.data().empty());
  }
}

TEST(DERWriterTest, WritesIntegersOfOneByteAsTheyAre) {
  KVLNotaryASN1 writer;
  writer.appendInt8(0);
  writer.appendInt8(127);
  writer.appendInt8(-128);
  writer.appendInt8(-1);
  EXPECT_EQ(writer.data(), (Bytes{2, 1, 0, 2, 1, 0x7f, 2, 1, 0x80, 2, 1, 0xff}));
}

TEST(DERWriterTest, WritesNullAndEmptyTags) {
  KVLNotaryASN1 writer;
  writer.appendNull();
  writer.appendEmptyTag(0xa0);
  EXPECT_EQ(writer.data(), (Bytes{5, 0, 0xa0, 0}));
}

TEST(DERWriterTest, WritesObjectIdentifiersUnchecked) {
  const std::array<std::uint8_t, 200> content{0x2a};
  KVLNotaryASN1 writer;
  writer.appendObjectIdentifier(content.data(), 200);
  EXPECT_EQ(writer.data().size(), 202U);
  EXPECT_EQ(writer.data()[0], 6);
  EXPECT_EQ(writer.data()[1], 200);
  EXPECT_EQ(writer.data()[2], 0x2a);
}

TEST(DERWriterTest, WritesBitStrings) {
  KVLNotaryASN1 writer;
  EXPECT_FALSE(writer.appendBitString({}));
  EXPECT_EQ(writer.data(), (Bytes{3, 1, 0}));
  const Bytes content{0xaa, 0xbb};
  EXPECT_FALSE(writer.appendBitString(content));
  EXPECT_EQ(writer.data(), (Bytes{3, 1, 0, 3, 3, 0, 0xaa, 0xbb}));
}

TEST(DERWriterTest, LengthOfABitStringCountsItsLeadingByte) {
  KVLNotaryASN1 writer;
  expectTooLong(writer.appendBitString(Bytes(32767)));
  KVLNotaryASN1 other;
  EXPECT_FALSE(other.appendBitString(Bytes(32766)));
}

TEST(DERWriterTest, WritesSequences) {
  KVLNotaryASN1 writer;
  EXPECT_FALSE(writer.appendSequence({}));
  EXPECT_EQ(writer.data(), (Bytes{0x30, 0}));
}

TEST(DERWriterTest, EmbedsUnderAnyTag) {
  KVLNotaryASN1 writer;
  const Bytes content{1, 2};
  EXPECT_FALSE(writer.embed(content, 0xa3));
  EXPECT_EQ(writer.data(), (Bytes{0xa3, 2, 1, 2}));
}

TEST(DERWriterTest, FailedEmbedLeavesItsTagBehind) {
  KVLNotaryASN1 writer;
  writer.appendNull();
  expectTooLong(writer.embed(Bytes(32768), 0x31));
  EXPECT_EQ(writer.data(), (Bytes{5, 0, 0x31}));
}

TEST(DERWriterTest, WrapsWithoutChangingItself) {
  KVLNotaryASN1 writer;
  writer.appendInt8(0);
  EXPECT_EQ(writer.asSequenceWithError(), (Bytes{0x30, 3, 2, 1, 0}));
  EXPECT_EQ(writer.data(), (Bytes{2, 1, 0}));
}

TEST(DERWriterTest, FinalisesInPlace) {
  KVLNotaryASN1 writer;
  writer.appendInt8(0);
  EXPECT_FALSE(writer.finaliseAsSequence());
  EXPECT_EQ(writer.data(), (Bytes{0x30, 3, 2, 1, 0}));
}

TEST(DERWriterTest, FailedWrappingKeepsTheBytesAndStoresTheError) {
  KVLNotaryASN1 writer;
  const Bytes large(32768, 7);
  writer.setData(large);
  std::optional<kvl::Error> error;
  EXPECT_EQ(writer.asSequenceWithError(&error), std::nullopt);
  expectTooLong(error);
  EXPECT_EQ(writer.asSequenceWithError(), std::nullopt);
  expectTooLong(writer.finaliseAsSequence());
  EXPECT_EQ(writer.data(), large);
}

}  // namespace
