#include "platform/security/HeldKey.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "tests/security/CertificateFactory.h"
#include "tests/security/KeyStoreKinds.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/ForwardingKeyStore.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kvl::security {
namespace {

constexpr auto kTag = "korvale.test.operations";

Dictionary pairParameters() {
  return {{kSecAttrKeyType, kSecAttrKeyTypeRSA}, {kSecAttrApplicationTag, Data::fromText(kTag)},
          {kSecAttrKeySizeInBits, 2048},         {kSecAttrLabel, "a label"},
          {kSecAttrComment, "a comment"},        {kSecAttrDescription, "a description"}};
}

Dictionary query() {
  return {{kSecClass, kSecClassKey},
          {kSecAttrApplicationTag, Data::fromText(kTag)},
          {kSecMatchLimit, kSecMatchLimitAll}};
}

Dictionary with(Dictionary dictionary, std::string_view key, const Value& value) {
  dictionary.set(key, value);
  return dictionary;
}

Dictionary without(Dictionary dictionary, std::string_view key) {
  dictionary.remove(key);
  return dictionary;
}

class KeyStoreOperationsTest : public testing::Test {
 protected:
  // The keys in memory are the process's.
  void TearDown() override { (void)SecItemDelete(*makeMemoryKeyStore(), query()); }

  [[nodiscard]] std::vector<KeyRef> find(const Dictionary& what) const {
    std::vector<KeyRef> keys;
    const Status status = SecItemCopyMatching(*store_, what, keys);
    EXPECT_EQ(status, keys.empty() ? errSecItemNotFound : kSuccess);
    return keys;
  }

  std::shared_ptr<KeyStore> store_ = makeMemoryKeyStore();
};

TEST_F(KeyStoreOperationsTest, GeneratesAPairThatBelongsTogether) {
  KeyRef publicKey;
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &publicKey, &privateKey), kSuccess);
  EXPECT_EQ(publicKey->keyClass(), Key::Class::publicKey);
  EXPECT_EQ(privateKey->keyClass(), Key::Class::privateKey);
  EXPECT_EQ(privateKey->sizeInBits(), 2048);
  EXPECT_EQ(EVP_PKEY_eq(nativeKey(*publicKey), nativeKey(*privateKey)), 1);
  EXPECT_TRUE(SecKeyCopyExternalRepresentation(publicKey, nullptr));
  EXPECT_TRUE(SecKeyCreateSignature(privateKey, sha256({}), nullptr));
}

TEST_F(KeyStoreOperationsTest, APairIsGeneratedWhileNobodyWaitsForItAndStoredThen) {
  PairGeneration begun(2048);
  ASSERT_TRUE(kvltest::waitUntil([&] { return begun.isDone(); }));
  KeyRef publicKey;
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &publicKey, &privateKey, &begun),
            kSuccess);
  EXPECT_EQ(EVP_PKEY_eq(nativeKey(*publicKey), nativeKey(*privateKey)), 1);
}

TEST_F(KeyStoreOperationsTest, APairThatIsNotReadyIsWaitedFor) {
  PairGeneration begun(2048);
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr, &begun), kSuccess);
}

TEST_F(KeyStoreOperationsTest, APairOfAnotherSizeIsNotTaken) {
  PairGeneration begun(3072);
  KeyRef publicKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &publicKey, nullptr, &begun), kSuccess);
  EXPECT_EQ(EVP_PKEY_get_bits(nativeKey(*publicKey)), 2048);
}

TEST_F(KeyStoreOperationsTest, ThePublicHalfCannotSign) {
  KeyRef publicKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &publicKey, nullptr), kSuccess);
  BIGNUM* exponent = nullptr;
  EXPECT_NE(EVP_PKEY_get_bn_param(nativeKey(*publicKey), "d", &exponent), 1);
}

TEST_F(KeyStoreOperationsTest, SlotsThatAreNotGivenAreNotFilled) {
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  EXPECT_EQ(find(query()).size(), 2U);
}

TEST_F(KeyStoreOperationsTest, TwoPairsOfOneTagBothStay) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  EXPECT_EQ(find(query()).size(), 4U);
}

TEST_F(KeyStoreOperationsTest, StoresBothHalvesUnderAllAttributes) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  std::vector<StoredKey> keys;
  ASSERT_EQ(store_->find(kTag, keys, kvltest::soon()), kSuccess);
  ASSERT_EQ(keys.size(), 2U);
  for (const StoredKey& key : keys) {
    EXPECT_EQ(key.label, "a label");
    EXPECT_EQ(key.comment, "a comment");
    EXPECT_EQ(key.description, "a description");
  }
  EXPECT_NE(keys[0].keyClass, keys[1].keyClass);
}

TEST_F(KeyStoreOperationsTest, RefusesIncompleteOrUnsupportedParameters) {
  KeyRef slot;
  const Dictionary good = pairParameters();
  for (const auto& [key, value] : good)
    EXPECT_EQ(SecKeyGeneratePair(*store_, without(good, key), &slot, &slot), errSecParam) << key;
  const std::pair<std::string_view, Value> wrong[] = {
      {kSecAttrKeyType, "kSecAttrKeyTypeEC"},
      {kSecAttrKeySizeInBits, 1024},
      {kSecAttrKeySizeInBits, -1},
      {kSecAttrKeySizeInBits, 2049},
      {kSecAttrKeySizeInBits, "2048"},
      {kSecAttrApplicationTag, Data()},
      {kSecAttrApplicationTag, 5},
      {kSecAttrApplicationTag, Data::fromText("\xFF")},
      {kSecAttrLabel, 5},
      {kSecAttrComment, nullptr}};
  for (const auto& [key, value] : wrong)
    EXPECT_EQ(SecKeyGeneratePair(*store_, with(good, key, value), &slot, &slot), errSecParam)
        << key;
  EXPECT_FALSE(slot);
  EXPECT_TRUE(find(query()).empty());
}

TEST_F(KeyStoreOperationsTest, DeletingWhenNothingExistsSaysSo) {
  EXPECT_EQ(SecItemDelete(*store_, query()), errSecItemNotFound);
}

TEST_F(KeyStoreOperationsTest, DeletesBothHalves) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  EXPECT_EQ(SecItemDelete(*store_, query()), kSuccess);
  EXPECT_TRUE(find(query()).empty());
  EXPECT_EQ(SecItemDelete(*store_, query()), errSecItemNotFound);
}

TEST_F(KeyStoreOperationsTest, ClassAndTypeNarrowAQuery) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  const Dictionary ofPrivate = with(query(), kSecAttrKeyClass, kSecAttrKeyClassPrivate);
  ASSERT_EQ(find(ofPrivate).size(), 1U);
  EXPECT_EQ(find(ofPrivate)[0]->keyClass(), Key::Class::privateKey);
  EXPECT_EQ(find(with(query(), kSecAttrKeyType, kSecAttrKeyTypeRSA)).size(), 2U);
  const Dictionary ofAnotherType = with(query(), kSecAttrKeyType, "kSecAttrKeyTypeEC");
  EXPECT_TRUE(find(ofAnotherType).empty());
  EXPECT_EQ(SecItemDelete(*store_, ofAnotherType), errSecItemNotFound);
  EXPECT_EQ(SecItemDelete(*store_, ofPrivate), kSuccess);
  EXPECT_EQ(find(query()).size(), 1U);
}

TEST_F(KeyStoreOperationsTest, WithoutALimitAQueryGivesTheFirstKey) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  EXPECT_EQ(find(without(query(), kSecMatchLimit)).size(), 1U);
}

TEST_F(KeyStoreOperationsTest, RefusesIncompleteOrUnsupportedQueries) {
  const Dictionary wrong[] = {without(query(), kSecClass),
                              with(query(), kSecClass, "kSecClassCertificate"),
                              without(query(), kSecAttrApplicationTag),
                              with(query(), kSecAttrApplicationTag, ""),
                              with(query(), kSecAttrKeyClass, "other"),
                              with(query(), kSecAttrKeyType, 5),
                              with(query(), kSecMatchLimit, 5)};
  for (const Dictionary& dictionary : wrong) {
    std::vector<KeyRef> keys;
    EXPECT_EQ(SecItemDelete(*store_, dictionary), errSecParam) << dictionary.description();
    EXPECT_EQ(SecItemCopyMatching(*store_, dictionary, keys), errSecParam)
        << dictionary.description();
  }
}

TEST_F(KeyStoreOperationsTest, IdentityJoinsTheCertificateToItsStoredKey) {
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, &privateKey), kSuccess);
  EVP_PKEY_up_ref(nativeKey(*privateKey));
  const auto issued = kvltest::issue({}, nullptr, OpenSSLPtr<EVP_PKEY>(nativeKey(*privateKey)));
  const CertificateRef certificate = issued.reference();
  IdentityRef identity;
  ASSERT_EQ(SecIdentityCreateWithCertificate(*store_, certificate, identity), kSuccess);
  EXPECT_EQ(identity->certificate(), certificate);
  EXPECT_EQ(EVP_PKEY_eq(nativeKey(*identity->privateKey()), nativeKey(*privateKey)), 1);
  EXPECT_EQ(identity->privateKey()->keyClass(), Key::Class::privateKey);
}

CertificateRef certificateOf(const Key& key) {
  EVP_PKEY_up_ref(nativeKey(key));
  return kvltest::issue({}, nullptr, OpenSSLPtr<EVP_PKEY>(nativeKey(key))).reference();
}

TEST_F(KeyStoreOperationsTest, OnePairOfCertificateAndKeyIsOneIdentity) {
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, &privateKey), kSuccess);
  const CertificateRef certificate = certificateOf(*privateKey);
  IdentityRef first;
  IdentityRef second;
  ASSERT_EQ(SecIdentityCreateWithCertificate(*store_, certificate, first), kSuccess);
  ASSERT_EQ(SecIdentityCreateWithCertificate(*store_, certificate, second), kSuccess);
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->privateKey(), privateKey);
  ASSERT_EQ(SecIdentityCreateWithCertificate(*store_, certificateOf(*privateKey), second),
            kSuccess);
  EXPECT_NE(first, second);
}

TEST_F(KeyStoreOperationsTest, StoreIsNotAskedForAKeyThatIsHeld) {
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, &privateKey), kSuccess);
  const CertificateRef certificate = certificateOf(*privateKey);
  kvltest::ScriptedStore store("scripted");
  IdentityRef identity;
  {
    HeldKey other;
    HeldKey place;
    place.set(privateKey);
    EXPECT_EQ(place.get(), privateKey);
    ASSERT_EQ(SecIdentityCreateWithCertificate(store, certificate, identity), kSuccess);
    EXPECT_EQ(identity->privateKey(), privateKey);
    place.set(nullptr);
    EXPECT_EQ(SecIdentityCreateWithCertificate(store, certificate, identity), errSecNotAvailable);
    place.set(privateKey);
  }
  EXPECT_EQ(SecIdentityCreateWithCertificate(store, certificate, identity), errSecNotAvailable);
  EXPECT_EQ(store.calls, 2);
}

TEST_F(KeyStoreOperationsTest, PublicKeyThatIsHeldMakesNoIdentity) {
  KeyRef publicKey;
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &publicKey, &privateKey), kSuccess);
  ASSERT_EQ(SecItemDelete(*store_, query()), kSuccess);
  HeldKey place;
  place.set(publicKey);
  IdentityRef identity;
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store_, certificateOf(*privateKey), identity),
            errSecItemNotFound);
}

// Notes which tags were asked for.
class AskedStore final : public kvltest::ForwardingKeyStore {
 public:
  [[nodiscard]] Status find(Tag tag, std::vector<StoredKey>& keys, Deadline deadline) override {
    asked.emplace_back(tag);
    return ForwardingKeyStore::find(tag, keys, deadline);
  }

  std::vector<std::optional<std::string>> asked;
};

TEST_F(KeyStoreOperationsTest, KeysOfOtherTagsAreNotReadForTheIdentityOfOne) {
  AskedStore store;
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(store, pairParameters(), nullptr, &privateKey), kSuccess);
  const CertificateRef certificate = certificateOf(*privateKey);
  IdentityRef identity;
  EXPECT_EQ(SecIdentityCreateWithCertificate(store, certificate, identity, kTag), kSuccess);
  EXPECT_THAT(store.asked, testing::ElementsAre(kTag));
  store.asked.clear();
  EXPECT_EQ(SecIdentityCreateWithCertificate(store, certificate, identity, "another.tag"),
            errSecItemNotFound);
  EXPECT_THAT(store.asked, testing::ElementsAre("another.tag"));
}

TEST_F(KeyStoreOperationsTest, NoIdentityWithoutTheKey) {
  ASSERT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  IdentityRef identity;
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store_, kvltest::issue({}).reference(), identity),
            errSecItemNotFound);
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store_, nullptr, identity), errSecParam);
  EXPECT_FALSE(identity);
}

TEST_F(KeyStoreOperationsTest, AFailingStoreLeavesNeitherHalfNorSlots) {
  const auto store = std::make_shared<kvltest::ScriptedStore>("scripted");
  std::vector<Key::Class> added;
  std::vector<std::optional<Key::Class>> removed;
  store->onAdd = [&](const StoredKey& key, Deadline) -> Status {
    added.push_back(key.keyClass);
    if (key.keyClass == Key::Class::privateKey) return errSecDataTooLarge;
    return kSuccess;
  };
  store->onRemove = [&](std::string_view tag, std::optional<Key::Class> keyClass) -> Status {
    EXPECT_EQ(tag, kTag);
    removed.push_back(keyClass);
    return kSuccess;
  };
  store_ = store;
  KeyRef slot;
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), &slot, &slot), errSecDataTooLarge);
  EXPECT_FALSE(slot);
  EXPECT_THAT(added, testing::ElementsAre(Key::Class::publicKey, Key::Class::privateKey));
  EXPECT_THAT(removed, testing::ElementsAre(Key::Class::publicKey));
}

TEST_F(KeyStoreOperationsTest, AStoreThatIsNotAvailableIsTold) {
  store_ = std::make_shared<kvltest::ScriptedStore>("scripted");
  std::vector<KeyRef> keys;
  IdentityRef identity;
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), errSecNotAvailable);
  EXPECT_EQ(SecItemDelete(*store_, query()), errSecNotAvailable);
  EXPECT_EQ(SecItemCopyMatching(*store_, query(), keys), errSecNotAvailable);
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store_, kvltest::issue({}).reference(), identity),
            errSecNotAvailable);
}

TEST_F(KeyStoreOperationsTest, TheStoreHearsOfAKeyBeforeItIsMade) {
  const auto store = std::make_shared<kvltest::ScriptedStore>("scripted");
  int keysAtFirst = -1;
  store->onExpectKey = [&] { keysAtFirst = store->calls; };
  store_ = makeFallbackKeyStore({store, makeMemoryKeyStore()});
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), kSuccess);
  EXPECT_EQ(keysAtFirst, 0);
}

TEST_F(KeyStoreOperationsTest, EveryOperationGivesTheStoreTheTimeLimit) {
  const auto store = std::make_shared<kvltest::ScriptedStore>("scripted");
  Deadline given{};
  store->onAdd = [&](const StoredKey&, Deadline deadline) -> Status {
    given = deadline;
    return errSecNotAvailable;
  };
  store_ = store;
  EXPECT_EQ(SecKeyGeneratePair(*store_, pairParameters(), nullptr, nullptr), errSecNotAvailable);
  const Deadline now = std::chrono::steady_clock::now();
  EXPECT_GT(given, now);
  EXPECT_LE(given, now + kKeyStoreTimeLimit);
}

class KeyStoreOperationsOnARealStoreTest : public testing::TestWithParam<kvltest::StoreKind> {};

TEST_P(KeyStoreOperationsOnARealStoreTest, AWholeLifeOfAnIdentity) {
  const auto surroundings = GetParam().surroundings();
  if (const auto absence = surroundings->absence(); !absence.empty()) GTEST_SKIP() << absence;
  const std::shared_ptr<KeyStore> store = surroundings->makeStore();
  KeyRef privateKey;
  ASSERT_EQ(SecKeyGeneratePair(*store, pairParameters(), nullptr, &privateKey), kSuccess);
  EVP_PKEY_up_ref(nativeKey(*privateKey));
  const auto issued = kvltest::issue({}, nullptr, OpenSSLPtr<EVP_PKEY>(nativeKey(*privateKey)));
  IdentityRef identity;
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store, issued.reference(), identity), kSuccess);
  EXPECT_EQ(SecItemDelete(*store, query()), kSuccess);
  EXPECT_EQ(SecIdentityCreateWithCertificate(*store, issued.reference(), identity),
            errSecItemNotFound);
}

INSTANTIATE_TEST_SUITE_P(Stores, KeyStoreOperationsOnARealStoreTest,
                         testing::ValuesIn(kvltest::storeKinds()),
                         [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace kvl::security
