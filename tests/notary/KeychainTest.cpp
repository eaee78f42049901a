#include "notary/Keychain.h"
#include "platform/security/KeyStore.h"
#include "platform/security/Operations.h"
#include "tests/notary/OwnKeys.h"
#include "tests/support/ForwardingKeyStore.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>

#include <gtest/gtest.h>

namespace {

using namespace kvl::security;
using kvl::Dictionary;

constexpr std::string_view kIdentifier = "org.example.KeychainTest";

// Passes on to a store in memory until it is told to fail.
class FailingStore final : public kvltest::ForwardingKeyStore {
 public:
  [[nodiscard]] kvl::Status add(const StoredKey& key, Deadline deadline) override {
    last = key;
    return status != kvl::kSuccess ? status : ForwardingKeyStore::add(key, deadline);
  }
  [[nodiscard]] kvl::Status remove(std::string_view tag, KeyClass keyClass,
                                   Deadline deadline) override {
    return status != kvl::kSuccess ? status : ForwardingKeyStore::remove(tag, keyClass, deadline);
  }

  kvl::Status status = kvl::kSuccess;
  std::optional<StoredKey> last;
};

class KeychainTest : public testing::Test {
 protected:
  KeychainTest() {
    kvl::setHostIdentifier(kIdentifier);
    EXPECT_FALSE(deleteKeys());
  }
  ~KeychainTest() override { kvl::setHostIdentifier(""); }

  [[nodiscard]] std::optional<kvl::Error> createKeys(kvl::KeyRef* publicKey,
                                                     kvl::KeyRef* privateKey) const {
    return kvl::notary::createKeys(*store, publicKey, privateKey);
  }
  [[nodiscard]] std::optional<kvl::Error> deleteKeys() const {
    return kvl::notary::deleteKeys(*store);
  }
  [[nodiscard]] std::size_t found(const Dictionary& query) const { return found(query, *store); }
  static std::size_t found(Dictionary query, KeyStore& where) {
    query.set(kSecMatchLimit, kSecMatchLimitAll);
    std::vector<kvl::KeyRef> keys;
    return SecItemCopyMatching(where, query, keys) == kvl::kSuccess ? keys.size() : 0;
  }
  // Matches both halves of the pair.
  static Dictionary anyKeyQuery() {
    auto query = KVLNotary::keyQuery();
    query.remove(kSecAttrKeyClass);
    return query;
  }

  const std::shared_ptr<FailingStore> store = std::make_shared<FailingStore>();
};

TEST_F(KeychainTest, QueryHasExactlyFourEntries) {
  const auto query = KVLNotary::keyQuery();
  EXPECT_EQ(query, (Dictionary{{"kSecClass", "kSecClassKey"},
                               {"kSecAttrKeyType", "kSecAttrKeyTypeRSA"},
                               {"kSecAttrKeyClass", "kSecAttrKeyClassPrivate"},
                               {"kSecAttrApplicationTag", kvl::Data::fromText(kIdentifier)}}));
}

TEST_F(KeychainTest, QueryIsNewOnEachCall) {
  auto query = KVLNotary::keyQuery();
  query.remove(kSecClass);
  EXPECT_EQ(KVLNotary::keyQuery().size(), 4U);
}

TEST_F(KeychainTest, DeletingNothingIsNoError) {
  EXPECT_FALSE(deleteKeys());
}

TEST_F(KeychainTest, CreatedKeysAreFoundAndBothHalvesDeleted) {
  kvl::KeyRef publicKey;
  kvl::KeyRef privateKey;
  ASSERT_FALSE(createKeys(&publicKey, &privateKey));
  EXPECT_EQ(publicKey->keyClass(), kvl::Key::Class::publicKey);
  EXPECT_EQ(privateKey->keyClass(), kvl::Key::Class::privateKey);
  EXPECT_EQ(privateKey->sizeInBits(), 2048);
  EXPECT_EQ(publicKey.use_count(), 1);
  EXPECT_EQ(privateKey.use_count(), 1);
  EXPECT_EQ(found(KVLNotary::keyQuery()), 1U);
  EXPECT_EQ(found(anyKeyQuery()), 2U);
  ASSERT_FALSE(deleteKeys());
  EXPECT_EQ(found(KVLNotary::keyQuery()), 0U);
  EXPECT_EQ(found(anyKeyQuery()), 0U);
}

TEST_F(KeychainTest, SlotsThatAreNotGivenAreNotFilled) {
  kvl::KeyRef privateKey;
  EXPECT_FALSE(createKeys(nullptr, &privateKey));
  EXPECT_NE(privateKey, nullptr);
  EXPECT_FALSE(createKeys(nullptr, nullptr));
}

TEST_F(KeychainTest, StoredKeysCarryLabelCommentAndDescription) {
  ASSERT_FALSE(createKeys(nullptr, nullptr));
  EXPECT_EQ(store->last->tag, kIdentifier);
  EXPECT_EQ(store->last->label, "org.example.KeychainTest (Client certificate key)");
  EXPECT_EQ(store->last->comment, "This is safe to delete. A key will be recreated as needed.");
  EXPECT_EQ(store->last->description, "Client certificate key");
}

TEST_F(KeychainTest, FailedCreationLeavesTheSlotsAlone) {
  store->status = -25308;
  kvl::KeyRef publicKey;
  kvl::KeyRef privateKey;
  EXPECT_EQ(createKeys(&publicKey, &privateKey), kvl::Error(kvl::NSOSStatusErrorDomain, -25308));
  EXPECT_EQ(publicKey, nullptr);
  EXPECT_EQ(privateKey, nullptr);
}

TEST_F(KeychainTest, FailedDeletionNamesTheCall) {
  store->status = -25308;
  EXPECT_EQ(deleteKeys(),
            kvl::Error(kvl::NSOSStatusErrorDomain, -25308, {{"call", "SecItemDelete"}}));
}

TEST_F(KeychainTest, KeysOfOtherHostsStay) {
  ASSERT_FALSE(createKeys(nullptr, nullptr));
  kvl::setHostIdentifier("org.example.Other");
  EXPECT_EQ(found(anyKeyQuery()), 0U);
  EXPECT_FALSE(deleteKeys());
  kvl::setHostIdentifier(kIdentifier);
  EXPECT_EQ(found(anyKeyQuery()), 2U);
}

// Those that hosts call.
TEST_F(KeychainTest, PublicOperationsUseTheProcessesKeyStore) {
  const kvltest::OwnKeys own{std::string(kIdentifier)};
  kvl::KeyRef privateKey;
  ASSERT_FALSE(KVLNotary::createKeysPublic(nullptr, &privateKey));
  EXPECT_NE(privateKey, nullptr);
  EXPECT_EQ(found(anyKeyQuery(), *defaultKeyStore()), 2U);
  EXPECT_FALSE(KVLNotary::deleteKeys());
  EXPECT_EQ(found(anyKeyQuery(), *defaultKeyStore()), 0U);
}

}  // namespace
