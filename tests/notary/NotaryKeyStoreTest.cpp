// A notary keeps its identity, whatever becomes of its entry in the key store.
#include "notary/ProcessReferences.h"
#include "platform/security/Operations.h"
#include "tests/notary/NotaryKeyStoreFixture.h"
#include "tests/support/ForwardingKeyStore.h"
#include "tests/support/MadeCertificate.h"
#include "tests/support/NoThreads.h"

#include <malloc.h>

namespace kvltest {
namespace {

using kvl::Dictionary;

using NotaryKeyStoreTest = NotaryKeyStoreFixture;

TEST_F(NotaryKeyStoreTest, IdentityHasTheNotarysOwnKey) {
  KVLNotary notary(std::nullopt, environment);
  const auto identity = renewed(notary);
  ASSERT_NE(identity, nullptr);
  EXPECT_EQ(identity->privateKey(), notary.privateKey());
}

// Notes how many threads there had been when it was asked to delete the first time.
class NotingStore final : public ForwardingKeyStore {
 public:
  [[nodiscard]] kvl::Status remove(std::string_view tag, KeyClass keyClass,
                                   Deadline deadline) override {
    if (atRemoval == 0) atRemoval = startedThreads();
    return ForwardingKeyStore::remove(tag, keyClass, deadline);
  }

  int atRemoval = 0;
};

TEST_F(NotaryKeyStoreTest, ThePairIsBegunBeforeTheOldOneIsDeleted) {
  const auto store = std::make_shared<NotingStore>();
  const int before = startedThreads();
  const KVLNotary notary(std::nullopt, surroundings(store));
  EXPECT_EQ(store->atRemoval, before + 1);
  EXPECT_TRUE(notary.hasKeys());
}

TEST_F(NotaryKeyStoreTest, ANotaryMakesItsKeysWithoutAThread) {
  const auto store = std::make_shared<NotingStore>();
  const NoThreads none;
  const KVLNotary notary(std::nullopt, surroundings(store));
  EXPECT_TRUE(notary.hasKeys());
}

TEST_F(NotaryKeyStoreTest, SecondNotaryTakesTheEntryButNotTheIdentity) {
  KVLNotary first(std::nullopt, environment);
  {
    KVLNotary second(std::nullopt, environment);
    EXPECT_NE(renewed(first), nullptr);
    EXPECT_NE(renewed(second), nullptr);
    EXPECT_NE(first.privateKey(), second.privateKey());
  }
  EXPECT_EQ(find(*environment->keyStore()), kvl::errSecItemNotFound);
  EXPECT_NE(renewed(first), nullptr);
}

TEST_F(NotaryKeyStoreTest, QueriesAndDeletionsSpeakOfTheStore) {
  KVLNotary notary(std::nullopt, environment);
  const auto store = environment->keyStore();
  EXPECT_EQ(find(*store), kvl::kSuccess);
  EXPECT_EQ(deleteKeys(*store), kvl::kSuccess);
  EXPECT_EQ(find(*store), kvl::errSecItemNotFound);
  EXPECT_EQ(deleteKeys(*store), kvl::errSecItemNotFound);
  EXPECT_NE(renewed(notary), nullptr);
}

TEST_F(NotaryKeyStoreTest, KeyOfADestroyedNotaryIsFoundNoMore) {
  auto notary = std::make_unique<KVLNotary>(std::nullopt, environment);
  const auto privateKey = notary->privateKey();
  const auto reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(*notary)}};
  notary.reset();
  script.reply = reply;
  EXPECT_EQ(notarise().signature->identity(), nullptr);
  EXPECT_EQ(log.count("client identity error: Error Domain=NSPOSIXErrorDomain Code=-25300"), 1U);
}

// Notes which tags were asked for.
class RecordingStore final : public ForwardingKeyStore {
 public:
  [[nodiscard]] kvl::Status find(Tag tag, std::vector<StoredKey>& keys,
                                 Deadline deadline) override {
    asked.emplace_back(tag);
    return ForwardingKeyStore::find(tag, keys, deadline);
  }

  std::vector<std::optional<std::string>> asked;
};

TEST_F(NotaryKeyStoreTest, KeysOfOtherProgramsAreNeverRead) {
  const auto store = std::make_shared<RecordingStore>();
  auto notary = std::make_unique<KVLNotary>(std::nullopt, surroundings(store));
  EXPECT_NE(renewed(*notary), nullptr);
  EXPECT_TRUE(store->asked.empty());
  KVLNotary without(std::nullopt, surroundings(store));
  notary.reset();
  EXPECT_EQ(notarise(without).signature->identity(), nullptr);
  EXPECT_EQ(store->asked, std::vector{std::optional(kvl::hostIdentifier())});
}

TEST_F(NotaryKeyStoreTest, NotaryCountsWithTheKeysThatItWasGiven) {
  KVLNotary notary(std::nullopt, environment);
  const auto before = Dictionary{{"url", kURLs}, {"certificate", certificateFor(notary)}};
  kvl::KeyRef publicKey;
  kvl::KeyRef privateKey;
  {
    const KVLNotary other(std::nullopt, environment);
    publicKey = other.publicKey();
    privateKey = other.privateKey();
  }
  notary.setPublicKey(publicKey);
  notary.setPrivateKey(privateKey);
  const auto identity = renewed(notary);
  ASSERT_NE(identity, nullptr);
  EXPECT_EQ(identity->privateKey(), privateKey);
  script.reply = before;
  EXPECT_EQ(notarise(notary).signature->identity(), nullptr);
}

TEST_F(NotaryKeyStoreTest, RenewalsWithOneKeyKeepWhatTheyKeepOnce) {
  KVLNotary notary(std::nullopt, environment);
  const auto anchor = kvltest::certificateEnding(kvl::Date::now().adding(5000));
  script.reply = Dictionary{
      {"url", kURLs}, {"anchor", anchor->pem()}, {"certificate", certificateFor(notary)}};
  constexpr int kRenewals = 2'500;
  constexpr std::size_t kLimit = std::size_t{1} << 18;
  const auto sink = kvl::setLogSink([](std::string_view) {});
  notarise(notary);
  const std::size_t kept = kvl::notary::keptObjectCount();
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < kRenewals; ++i) {
    notarise(notary);
    script.steps.clear();
  }
  const std::size_t after = mallinfo2().uordblks;
  kvl::setLogSink(sink);
  EXPECT_EQ(kvl::notary::keptObjectCount(), kept);
  EXPECT_LT(after, before + kLimit);
}

TEST_F(NotaryKeyStoreTest, NewCertificateKeepsLittleMoreThanItsEncoding) {
  const KVLNotary notary(std::nullopt, environment);
  constexpr int kCertificates = 300;
  constexpr std::size_t kOverhead = 1024;
  std::vector<std::string> texts;
  std::size_t encodings = 0;
  for (int i = 0; i < kCertificates; ++i) {
    texts.push_back(certificateFor(notary, i));
    kvl::CertificateRef certificate;
    ASSERT_FALSE(KVLNotary::decode(texts.back(), &certificate));
    encodings += certificate->encoded().size();
  }
  const auto sink = kvl::setLogSink([](std::string_view) {});
  notarise();
  const std::size_t before = mallinfo2().uordblks;
  for (const std::string& text : texts) {
    script.reply = Dictionary{{"url", kURLs}, {"certificate", text}};
    EXPECT_NE(notarise().signature->identity(), nullptr);
    script.steps.clear();
  }
  const std::size_t after = mallinfo2().uordblks;
  kvl::setLogSink(sink);
  EXPECT_LT(after, before + encodings + kCertificates * kOverhead);
}

}  // namespace
}  // namespace kvltest
