// The Secret Service's store beside providers that are not as they should be.
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/ProcessFigures.h"
#include "tests/support/SecretProvider.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kvl::security {
namespace {

using kvltest::SecretProvider;
using kvltest::soon;
using kvltest::storedKey;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr auto kLocked = "org.freedesktop.Secret.Error.IsLocked";

class SecretProviderTest : public testing::Test {
 protected:
  SecretProvider& provide(SecretProvider::Manners manners) {
    provider_.emplace(bus_.address(), std::move(manners));
    return *provider_;
  }
  std::string addItem(const std::string& tag, SecretProvider::Attributes further = {}) {
    SecretProvider::Attributes all{
        {"xdg:schema", "korvale.vandrel.local.key"}, {"tag", tag}, {"class", "private"}};
    all.merge(further);
    return provider_->addItem(all);
  }
  // The next question is answered once the store has tidied up.
  void awaitTidying() {
    std::vector<StoredKey> none;
    EXPECT_EQ(store_->find("nobody", none, soon()), kSuccess);
  }
  // Jobs of the store come one after another, so that what comes next finds the visit.
  void openAhead() {
    store_->expectKey();
    ASSERT_TRUE(kvltest::waitUntil([this] { return provider_->count("OpenSession") == 1; }));
  }
  // However long it takes.
  void keepAndFindKey() {
    ASSERT_EQ(store_->add(key_, soon(std::chrono::hours(1))), kSuccess);
    EXPECT_EQ(store_->find(key_.tag, found_, soon(std::chrono::hours(1))), kSuccess);
    EXPECT_THAT(found_, SizeIs(1));
  }
  // The store does not wait until they are heard.
  void expectDismissals(int number) {
    EXPECT_TRUE(kvltest::waitUntil([&] { return provider_->count("Dismiss") >= number; }));
    EXPECT_EQ(provider_->count("Dismiss"), number);
  }
  void expectNobodyWasAsked() {
    EXPECT_EQ(provider_->count("Prompt"), 0);
    EXPECT_EQ(provider_->count("CreateCollection"), 0);
  }

  kvltest::PrivateBus bus_;
  const kvltest::SessionBusVariable variable_{bus_.address()};
  std::optional<SecretProvider> provider_;
  const std::shared_ptr<KeyStore> store_ = makeSecretServiceKeyStore();
  const std::shared_ptr<KeyStore> chain_ = makeFallbackKeyStore({store_, makeMemoryKeyStore()});
  const StoredKey key_ = storedKey(kvltest::uniqueTag());
  const StoredKey public_ = storedKey(key_.tag, Key::Class::publicKey);
  std::vector<StoredKey> found_;
  kvltest::LogCapture log_;
};

TEST_F(SecretProviderTest, KeepsKeysAsARealOneDoes) {
  provide({});
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  ASSERT_EQ(store_->find(key_.tag, found_, soon()), kSuccess);
  ASSERT_THAT(found_, SizeIs(1));
  EXPECT_EQ(found_[0].encoded, key_.encoded);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), IsEmpty());
}

TEST_F(SecretProviderTest, ASessionCollectionThatIsNotThereIsNotMade) {
  provide({.hasSessionCollection = false});
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
  EXPECT_EQ(store_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecItemNotFound);
  expectNobodyWasAsked();
  EXPECT_EQ(chain_->add(key_, soon()), kSuccess);
  EXPECT_THAT(log_.lines(), ElementsAre("key store: keys are kept in the process memory"));
}

TEST_F(SecretProviderTest, NobodyIsAskedToUnlockTheCollection) {
  provide({.prompts = {"Unlock"}});
  EXPECT_EQ(store_->add(key_, soon()), errSecInteractionNotAllowed);
  expectDismissals(1);
  EXPECT_EQ(chain_->add(key_, soon()), kSuccess);
  expectNobodyWasAsked();
}

TEST_F(SecretProviderTest, NobodyIsAskedBeforeAKeyIsKept) {
  provide({.prompts = {"CreateItem"}});
  EXPECT_EQ(store_->add(key_, soon()), errSecInteractionNotAllowed);
  expectDismissals(1);
  EXPECT_EQ(chain_->add(key_, soon()), kSuccess);
  expectNobodyWasAsked();
}

TEST_F(SecretProviderTest, NobodyIsAskedToUnlockAnItemWhichIsPassedOver) {
  provide({.prompts = {"Unlock"}, .fails = {{"GetSecret", kLocked}, {"Delete", kLocked}}});
  addItem(key_.tag);
  EXPECT_EQ(store_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_THAT(found_, IsEmpty());
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecInteractionNotAllowed);
  expectNobodyWasAsked();
}

TEST_F(SecretProviderTest, NobodyIsAskedBeforeADeletionWhichFailsThen) {
  provide({.prompts = {"Delete"}});
  addItem(key_.tag);
  addItem(key_.tag);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecInteractionNotAllowed);
  expectDismissals(2);
  expectNobodyWasAsked();
}

TEST_F(SecretProviderTest, ADeletionThatFailsIsToldAsAFailure) {
  provide({.fails = {{"Delete", "org.freedesktop.DBus.Error.Failed"}}});
  addItem(key_.tag);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecInternalComponent);
  provider_->behave({.fails = {{"SearchItems", "org.freedesktop.DBus.Error.Failed"}}});
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecInternalComponent);
}

TEST_F(SecretProviderTest, AnOwnerOfTheNameThatIsNoSecretServiceIsNotAvailable) {
  provide({.fails = {{"SearchItems", "org.freedesktop.DBus.Error.UnknownMethod"},
                     {"ReadAlias", "org.freedesktop.DBus.Error.UnknownMethod"}}});
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecNotAvailable);
}

TEST_F(SecretProviderTest, KeysNeverTravelInClearText) {
  provide({.encrypts = false});
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
  EXPECT_EQ(provider_->count("CreateItem"), 0);
  EXPECT_EQ(chain_->add(key_, soon()), kSuccess);
  EXPECT_THAT(log_.lines(), ElementsAre("key store: keys are kept in the process memory"));
}

TEST_F(SecretProviderTest, DeletingNeedsNoEncryption) {
  provide({.encrypts = false});
  addItem(key_.tag);
  EXPECT_EQ(store_->find(key_.tag, found_, soon()), errSecNotAvailable);
  EXPECT_THAT(provider_->readItems(), IsEmpty());
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), IsEmpty());
}

TEST_F(SecretProviderTest, AServiceThatEndsInMidCallIsReplaced) {
  for (const char* method : {"ReadAlias", "OpenSession", "CreateItem"}) {
    provide({.dies = {method}});
    EXPECT_EQ(chain_->add(key_, soon()), kSuccess) << method;
    EXPECT_EQ(provider_->count(method), 1);
  }
  EXPECT_EQ(chain_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_THAT(found_, SizeIs(3));
}

TEST_F(SecretProviderTest, AServiceThatHangsAnywhereCostsNoMoreThanTheDeadline) {
  for (const char* method : {"ReadAlias", "Unlock", "OpenSession", "CreateItem"}) {
    provide({.hangs = {method}});
    EXPECT_EQ(store_->add(key_, soon(milliseconds(50))), errSecNotAvailable) << method;
  }
}

TEST_F(SecretProviderTest, KeysGoToAServiceThatComesLater) {
  ASSERT_EQ(chain_->add(key_, soon()), kSuccess);
  provide({});
  ASSERT_EQ(chain_->add(key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(1));
  EXPECT_EQ(chain_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_THAT(found_, SizeIs(2));
  EXPECT_THAT(log_.lines(), ElementsAre("key store: keys are kept in the process memory",
                                        "key store: keys are kept in the Secret Service"));
  EXPECT_EQ(chain_->remove(key_.tag, std::nullopt, soon()), kSuccess);
}

TEST_F(SecretProviderTest, AServiceThatRestartsWithoutItsSessionCollectionIsReplaced) {
  provide({});
  ASSERT_EQ(chain_->add(key_, soon()), kSuccess);
  provider_.reset();
  provide({.hasSessionCollection = false});
  ASSERT_EQ(chain_->add(key_, soon()), kSuccess);
  EXPECT_EQ(chain_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_THAT(found_, SizeIs(1));
  EXPECT_EQ(chain_->remove(key_.tag, std::nullopt, soon()), kSuccess);
  expectNobodyWasAsked();
}

// As a service does now and then to whom several programs come at once.
TEST_F(SecretProviderTest, AServiceThatKnowsNoneOfItsMethodsAtFirstIsAskedOnceMore) {
  provide({.forgets = {{"ReadAlias", 1}, {"SearchItems", 1}}});
  ASSERT_EQ(chain_->add(key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(1));
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), IsEmpty());
}

TEST_F(SecretProviderTest, AServiceThatKnowsNoSessionCollectionAtFirstIsAskedOnceMore) {
  provide({.lateCollection = 1});
  ASSERT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(2));
}

TEST_F(SecretProviderTest, SomebodyElseUnderItsNameIsNoStore) {
  provide({.forgets = {{"SearchItems", 1000}}});
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecNotAvailable);
  EXPECT_EQ(provider_->count("SearchItems"), 2);
}

TEST_F(SecretProviderTest, BothHalvesOfAPairAreKeptInOneVisit) {
  provide({});
  ASSERT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(2));
  EXPECT_EQ(provider_->count("OpenSession"), 1);
  EXPECT_EQ(provider_->count("ReadAlias"), 1);
}

TEST_F(SecretProviderTest, OfAPairThatCannotBeKeptNoHalfStays) {
  provide({.failsAt = {{"CreateItem", 2}}});
  EXPECT_EQ(store_->addPair(public_, key_, soon()), errSecInternalComponent);
  EXPECT_EQ(provider_->count("CreateItem"), 2);
  EXPECT_THAT(provider_->items(), IsEmpty());
}

TEST_F(SecretProviderTest, APairIsKeptByTheVisitThatWasOpenedForIt) {
  provide({});
  openAhead();
  ASSERT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(2));
  EXPECT_EQ(provider_->count("OpenSession"), 1);
}

TEST_F(SecretProviderTest, AServiceThatEndsWhileAKeyIsMadeIsReplacedWithoutAWord) {
  provide({});
  openAhead();
  provider_.reset();
  provide({.failsAt = {{"CreateItem", 1}}});
  ASSERT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(2));
  EXPECT_EQ(provider_->count("OpenSession"), 1);
}

TEST_F(SecretProviderTest, ABusThatEndsWhileAKeyIsMadeIsReplacedWithoutAWord) {
  provide({});
  openAhead();
  provider_.reset();
  bus_.stop();
  bus_.restart();
  provide({});
  ASSERT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(2));
}

TEST_F(SecretProviderTest, AVisitThatNobodyTakesIsGivenUp) {
  provide({});
  const auto store = makeSecretServiceKeyStore(std::chrono::milliseconds(1));
  ASSERT_EQ(store->add(key_, soon()), kSuccess);
  ASSERT_EQ(store->find("nobody", found_, soon()), kSuccess);  // once it has tidied up
  const auto before = kvltest::descriptorCount();
  store->expectKey();
  EXPECT_TRUE(kvltest::waitUntil([this] { return provider_->count("OpenSession") == 2; }));
  EXPECT_TRUE(kvltest::waitUntil([&] { return kvltest::descriptorCount() <= before; }));
}

TEST_F(SecretProviderTest, AServiceThatHangsWhileAKeyIsMadeCostsNoMoreThanTheDeadline) {
  provide({.hangs = {"OpenSession"}});
  store_->expectKey();
  ASSERT_TRUE(kvltest::waitUntil([this] { return provider_->count("OpenSession") == 1; }));
  EXPECT_EQ(store_->addPair(public_, key_, soon(milliseconds(50))), errSecNotAvailable);
  provider_->behave({});
  EXPECT_EQ(store_->addPair(public_, key_, soon()), kSuccess);
}

TEST_F(SecretProviderTest, OfOtherProgramsNoKeyIsRead) {
  provide({});
  addItem("org.example.other");
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  ASSERT_EQ(store_->find(key_.tag, found_, soon()), kSuccess);
  EXPECT_THAT(found_, SizeIs(1));
  EXPECT_THAT(provider_->readItems(), SizeIs(1));
}

TEST_F(SecretProviderTest, WhatEndedProgramsLeftBehindGoesUnread) {
  provide({});
  const std::string ended = addItem("ended", {{"maker", kvltest::markOfEndedProcess()}});
  const std::string running = addItem("running", {{"maker", *ProcessMarks().own()}});
  const std::string elsewhere = addItem("elsewhere", {{"maker", "1.0123456789abcdef.1.1"}});
  const std::string unknown = addItem("unknown");
  const std::string others = provider_->addItem({{"maker", kvltest::markOfEndedProcess()}});
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  awaitTidying();
  EXPECT_THAT(provider_->readItems(), IsEmpty());
  const auto items = provider_->items();
  EXPECT_THAT(items, SizeIs(5));
  EXPECT_FALSE(items.contains(ended));
  for (const std::string& path : {running, elsewhere, unknown, others})
    EXPECT_TRUE(items.contains(path)) << path;
}

TEST_F(SecretProviderTest, TheNextKeysAreKeptWithoutALookAtOtherPrograms) {
  provide({});
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  awaitTidying();
  const int looked = provider_->count("SearchItems");
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  EXPECT_EQ(provider_->count("SearchItems"), looked);
}

TEST_F(SecretProviderTest, AKeyIsKeptThoughTidyingUpHangs) {
  provide({.hangs = {"SearchItems"}});
  EXPECT_EQ(store_->add(key_, soon(std::chrono::seconds(1))), kSuccess);
  EXPECT_THAT(provider_->items(), SizeIs(1));
}

// Twenty other programs' pairs, about which the service says nothing.
TEST_F(SecretProviderTest, AKeyIsKeptBeforeOtherProgramsAreLookedAt) {
  provide({.hangs = {"Get"}});
  for (int i = 0; i < 40; ++i) addItem("program" + std::to_string(i / 2));
  ASSERT_EQ(store_->add(key_, soon(std::chrono::hours(1))), kSuccess);
  EXPECT_LE(provider_->count("Get"), 1);
}

TEST_F(SecretProviderTest, TidyingUpThatHangsHoldsUpTheNextCallForAMomentOnly) {
  provide({.hangs = {"Get"}});
  for (int i = 0; i < 40; ++i) addItem("program" + std::to_string(i / 2));
  keepAndFindKey();
  EXPECT_EQ(provider_->count("Get"), 1);
}

TEST_F(SecretProviderTest, LeftOversThatDoNotGoHoldUpTheNextCallForASecondOnly) {
  provide({.hangs = {"Delete"}});
  for (int i = 0; i < 40; ++i)
    addItem("ended" + std::to_string(i), {{"maker", kvltest::markOfEndedProcess()}});
  keepAndFindKey();
  // Each costs as long as an answer is waited for.
  EXPECT_LE(provider_->count("Delete"), 6);
}

TEST_F(SecretProviderTest, NobodyIsAskedBeforeLeftOversGoWhichStayThen) {
  provide({.prompts = {"Delete"}});
  addItem("ended", {{"maker", kvltest::markOfEndedProcess()}});
  EXPECT_EQ(store_->add(key_, soon()), kSuccess);
  awaitTidying();
  EXPECT_EQ(provider_->count("Delete"), 1);
  EXPECT_THAT(provider_->items(), SizeIs(2));
  expectNobodyWasAsked();
}

}  // namespace
}  // namespace kvl::security
