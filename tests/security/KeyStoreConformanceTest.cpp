// One suite over every kind of key store.
#include "tests/security/KeyStoreKinds.h"
#include "tests/security/KeyStoreSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace kvl::security {
namespace {

using kvltest::soon;
using kvltest::storedKey;
using kvltest::uniqueTag;

class KeyStoreConformanceTest : public testing::TestWithParam<kvltest::StoreKind> {
 protected:
  void SetUp() override {
    surroundings_ = GetParam().surroundings();
    if (const auto absence = surroundings_->absence(); !absence.empty()) GTEST_SKIP() << absence;
    store_ = surroundings_->makeStore();
  }
  void TearDown() override {
    if (!store_) return;
    for (const std::string& tag : {tag_, otherTag_})
      (void)store_->remove(tag, std::nullopt, soon());
  }

  std::vector<StoredKey> find(std::optional<std::string_view> tag) {
    std::vector<StoredKey> keys;
    EXPECT_EQ(store_->find(tag, keys, soon()), kSuccess);
    return keys;
  }

  std::unique_ptr<kvltest::StoreSurroundings> surroundings_;
  std::shared_ptr<KeyStore> store_;
  const std::string tag_ = uniqueTag();
  const std::string otherTag_ = uniqueTag();
};

void expectEqual(const StoredKey& a, const StoredKey& b) {
  EXPECT_EQ(a.tag, b.tag);
  EXPECT_EQ(a.keyClass, b.keyClass);
  EXPECT_EQ(a.label, b.label);
  EXPECT_EQ(a.comment, b.comment);
  EXPECT_EQ(a.description, b.description);
  EXPECT_EQ(a.encoded, b.encoded);
}

TEST_P(KeyStoreConformanceTest, FindsWhatWasAdded) {
  StoredKey key = storedKey(tag_);
  key.label =
      "L\xC3\xA4"
      "bel; with \"marks\" and = signs";
  key.comment = "";
  key.encoded[5] = 0;
  ASSERT_EQ(store_->add(key, soon()), kSuccess);
  const std::vector<StoredKey> found = find(tag_);
  ASSERT_EQ(found.size(), 1U);
  expectEqual(found.front(), key);
}

TEST_P(KeyStoreConformanceTest, FindsNothingWithoutFailing) {
  EXPECT_TRUE(find(tag_).empty());
}

TEST_P(KeyStoreConformanceTest, DoesNotFindKeysByOtherTags) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  for (const std::string& other :
       {otherTag_, tag_ + "x", tag_.substr(0, tag_.size() - 1), std::string(), std::string("*"),
        std::string("\xFF"), std::string("a\0b", 3)})
    EXPECT_TRUE(find(other).empty()) << other;
}

TEST_P(KeyStoreConformanceTest, WithoutATagFindsTheKeysOfAll) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(otherTag_), soon()), kSuccess);
  const std::vector<StoredKey> all = find(std::nullopt);
  for (const std::string& tag : {tag_, otherTag_})
    EXPECT_EQ(std::ranges::count(all, tag, &StoredKey::tag), 1);
}

TEST_P(KeyStoreConformanceTest, KeepsBothClassesAndNeverReplaces) {
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::publicKey), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::privateKey), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::privateKey, 2), soon()), kSuccess);
  const std::vector<StoredKey> found = find(tag_);
  EXPECT_EQ(found.size(), 3U);
  EXPECT_EQ(std::ranges::count(found, Key::Class::privateKey, &StoredKey::keyClass), 2);
}

TEST_P(KeyStoreConformanceTest, RemovesAllKeysOfATagAndNoOthers) {
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::publicKey), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(otherTag_), soon()), kSuccess);
  EXPECT_EQ(store_->remove(tag_, std::nullopt, soon()), kSuccess);
  EXPECT_TRUE(find(tag_).empty());
  EXPECT_EQ(find(otherTag_).size(), 1U);
}

TEST_P(KeyStoreConformanceTest, RemovesOneClassOnly) {
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::publicKey), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  EXPECT_EQ(store_->remove(tag_, Key::Class::publicKey, soon()), kSuccess);
  const std::vector<StoredKey> left = find(tag_);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left.front().keyClass, Key::Class::privateKey);
  EXPECT_EQ(store_->remove(tag_, Key::Class::publicKey, soon()), errSecItemNotFound);
  EXPECT_EQ(store_->remove(tag_, Key::Class::privateKey, soon()), kSuccess);
  EXPECT_TRUE(find(tag_).empty());
}

TEST_P(KeyStoreConformanceTest, RemovingNothingSaysSo) {
  EXPECT_EQ(store_->remove(tag_, std::nullopt, soon()), errSecItemNotFound);
  EXPECT_EQ(store_->remove("", std::nullopt, soon()), errSecItemNotFound);
  EXPECT_EQ(store_->remove("\xFF", std::nullopt, soon()), errSecItemNotFound);
}

TEST_P(KeyStoreConformanceTest, TakesKeysAgainAfterRemoval) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
    EXPECT_EQ(find(tag_).size(), 1U);
    ASSERT_EQ(store_->remove(tag_, std::nullopt, soon()), kSuccess);
  }
}

TEST_P(KeyStoreConformanceTest, RefusesWhatNoStoreCanHold) {
  const auto refused = [&](auto change) {
    StoredKey key = storedKey(tag_);
    change(key);
    return store_->add(key, soon());
  };
  EXPECT_EQ(refused([](StoredKey& key) { key.tag.clear(); }), errSecParam);
  EXPECT_EQ(refused([](StoredKey& key) { key.encoded.clear(); }), errSecParam);
  EXPECT_EQ(refused([](StoredKey& key) { key.label = "\xC3"; }), errSecParam);
  EXPECT_EQ(refused([](StoredKey& key) { key.comment = std::string("a\0b", 3); }), errSecParam);
  EXPECT_EQ(refused([](StoredKey& key) { key.label.assign(1025, 'a'); }), errSecDataTooLarge);
  EXPECT_EQ(refused([](StoredKey& key) { key.encoded.resize(16385); }), errSecDataTooLarge);
  EXPECT_TRUE(find(tag_).empty());
}

TEST_P(KeyStoreConformanceTest, TakesTheLargestThatIsAllowed) {
  StoredKey key = storedKey(tag_);
  key.label.assign(1024, 'l');
  key.comment.assign(1024, 'c');
  key.encoded.resize(16384, 7);
  ASSERT_EQ(store_->add(key, soon()), kSuccess);
  ASSERT_EQ(find(tag_).size(), 1U);
  expectEqual(find(tag_).front(), key);
}

TEST_P(KeyStoreConformanceTest, SeveralStoresOfOneKindShareTheKeys) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  std::vector<StoredKey> keys;
  ASSERT_EQ(surroundings_->makeStore()->find(tag_, keys, soon()), kSuccess);
  EXPECT_EQ(keys.size(), 1U);
}

// Adds, finds and removes for a while; counts answers that no contract allows.
int hammer(KeyStore& store, const std::string& tag, int rounds) {
  int failures = 0;
  for (int i = 0; i < rounds; ++i) {
    std::vector<StoredKey> keys;
    const Status added = store.add(storedKey(tag), soon());
    const Status found = store.find(tag, keys, soon());
    const Status removed = store.remove(tag, std::nullopt, soon());
    EXPECT_EQ(added, kSuccess) << "round " << i;
    EXPECT_EQ(found, kSuccess) << "round " << i;
    EXPECT_THAT(removed, testing::AnyOf(kSuccess, errSecItemNotFound)) << "round " << i;
    failures += added != kSuccess || found != kSuccess ||
                (removed != kSuccess && removed != errSecItemNotFound);
  }
  return failures;
}

TEST_P(KeyStoreConformanceTest, TwoThreadsMayUseOneStore) {
  constexpr int kRounds = 20;
  int failures[2] = {-1, -1};
  std::thread other([&] { failures[1] = hammer(*store_, otherTag_, kRounds); });
  failures[0] = hammer(*store_, tag_, kRounds);
  other.join();
  EXPECT_EQ(failures[0], 0);
  EXPECT_EQ(failures[1], 0);
  EXPECT_TRUE(find(tag_).empty());
  EXPECT_TRUE(find(otherTag_).empty());
}

TEST_P(KeyStoreConformanceTest, TwoStoresMayFightOverOneTag) {
  constexpr int kRounds = 20;
  const std::shared_ptr<KeyStore> second = surroundings_->makeStore();
  int failures[2] = {-1, -1};
  std::thread other([&] { failures[1] = hammer(*second, tag_, kRounds); });
  failures[0] = hammer(*store_, tag_, kRounds);
  other.join();
  EXPECT_EQ(failures[0], 0);
  EXPECT_EQ(failures[1], 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, KeyStoreConformanceTest, testing::ValuesIn(kvltest::storeKinds()),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace kvl::security
