// What a host sees of a key store that fails: next to nothing, since the key that it uses is held
// and another store takes the next one.
#include "platform/security/KeyStore.h"
#include "tests/faults/FaultScene.h"
#include "tests/support/SecretProvider.h"

namespace {

using namespace kvltest;

class KeyStoreFaults : public FaultScene {
 protected:
  KeyStoreFaults() {
    // The process's own remembers for a while which store did not answer.
    environment().keyStore = [store = std::shared_ptr(makeStore())] { return store; };
  }
  static std::shared_ptr<kvl::security::KeyStore> makeStore() {
    using namespace kvl::security;
    return makeFallbackKeyStore({makeSecretServiceKeyStore(kNever), makeMemoryKeyStore()});
  }

  // A renewal with the present key, and one with a new pair, whose predecessor goes.
  void expectRenewals() {
    ASSERT_NO_FATAL_FAILURE(renew());
    EXPECT_NE(session->signature()->identity(), nullptr);
    expectAnswer(ask());
    session->setNotary(std::make_shared<KVLNotary>(
        std::nullopt, std::make_shared<kvl::Environment>(environment())));
    ASSERT_NO_FATAL_FAILURE(renew());
    EXPECT_NE(session->signature()->identity(), nullptr);
    expectAnswer(ask());
  }
  void expectNothingWasLost() {
    recover();
    EXPECT_EQ(statesSeen(), "established");
    EXPECT_EQ(progressSeen(), "Established");
  }
};

TEST_F(KeyStoreFaults, OneThatHangsIsPassedOver) {
  begin();
  beginFault();
  bus.freezeKeyring();
  expectRenewals();
  expectLog("key store: Secret Service does not answer");
  expectLog("key store: keys are kept in the process memory");
  endFault();
  bus.thawKeyring();
  expectNothingWasLost();
  report("key store", "hanging");
}

TEST_F(KeyStoreFaults, OneThatIsRestartedHasForgottenTheKeysWhichTheHostHolds) {
  begin();
  beginFault();
  bus.killKeyring();
  bus.startKeyring();
  expectRenewals();
  endFault();
  expectNothingWasLost();
  report("key store", "restarted");
}

// Providers that do as they are told take the real one's place.
class KeyStoreProviderFaults : public KeyStoreFaults {
 protected:
  void beginWithProvider() {
    bus.killKeyring();
    provider_ = std::make_unique<SecretProvider>(bus.address(), SecretProvider::Manners{});
    begin();
    ASSERT_EQ(provider_->items().size(), 2U);
  }
  void expectNobodyWasAsked() const {
    EXPECT_EQ(provider_->count("Prompt"), 0);
    EXPECT_EQ(provider_->count("CreateCollection"), 0);
  }
  SecretProvider& provider() { return *provider_; }

 private:
  std::unique_ptr<SecretProvider> provider_;
};

TEST_F(KeyStoreProviderFaults, LockedOneIsPassedOver) {
  beginWithProvider();
  beginFault();
  const std::string locked = "org.freedesktop.Secret.Error.IsLocked";
  provider().behave({.fails = {{"CreateItem", locked}, {"GetSecret", locked}, {"Delete", locked}}});
  expectRenewals();
  expectLog("key store: keys are kept in the process memory");
  endFault();
  provider().behave({});
  expectNothingWasLost();
  expectNobodyWasAsked();
  report("key store", "locked");
}

TEST_F(KeyStoreProviderFaults, NobodyIsEverAsked) {
  beginWithProvider();
  beginFault();
  provider().behave({.prompts = {"Unlock", "CreateItem", "Delete"}});
  expectRenewals();
  expectLog("key deletion error: Error Domain=NSOSStatusErrorDomain Code=-25308");
  expectLog("key store: keys are kept in the process memory");
  endFault();
  provider().behave({});
  expectNothingWasLost();
  expectNobodyWasAsked();
  report("key store", "prompting");
}

TEST_F(KeyStoreProviderFaults, FullOneIsPassedOver) {
  beginWithProvider();
  beginFault();
  provider().behave({.fails = {{"CreateItem", "org.freedesktop.DBus.Error.LimitsExceeded"}}});
  expectRenewals();
  expectLog("key store: keys are kept in the process memory");
  endFault();
  provider().behave({});
  expectNothingWasLost();
  report("key store", "full");
}

}  // namespace
