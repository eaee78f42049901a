#include <local/platform/Data.h>

#include <gtest/gtest.h>

namespace {

TEST(DataTest, TakesOverBytesWithoutCopyingThem) {
  kvl::Bytes bytes{1, 2, 3};
  const auto* address = bytes.data();
  const kvl::Data data(std::move(bytes));
  EXPECT_EQ(data.data(), address);
  EXPECT_EQ(data.size(), 3U);
}

TEST(DataTest, CopiesShareTheBytes) {
  const auto data = kvl::Data::fromText("some bytes");
  const kvl::Data copy = data;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.data(), data.data());
}

TEST(DataTest, KeepsItsOwnerAlive) {
  auto owner = std::make_shared<std::string>("owned");
  std::weak_ptr<std::string> watch = owner;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(owner->data());
  {
    const kvl::Data data(owner, {bytes, owner->size()});
    owner.reset();
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(data.text(), "owned");
  }
  EXPECT_TRUE(watch.expired());
}

TEST(DataTest, EqualsByContent) {
  EXPECT_EQ(kvl::Data::fromText("a"), kvl::Data::fromText("a"));
  EXPECT_FALSE(kvl::Data::fromText("a") == kvl::Data::fromText("b"));
  EXPECT_FALSE(kvl::Data::fromText("a") == kvl::Data::fromText("ab"));
  EXPECT_EQ(kvl::Data(), kvl::Data::fromText(""));
}

}  // namespace
