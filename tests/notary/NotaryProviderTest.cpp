// A notary on desktops whose Secret Service is of no use to it: it gets its pair all the same, and
// nobody sees a dialog.
#include "tests/notary/NotaryFixture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/SecretProvider.h"

#include <gtest/gtest.h>

namespace {

using kvltest::SecretProvider;

struct Provider {
  const char* name;
  SecretProvider::Manners manners;
};

class NotaryProviderTest : public kvltest::NotaryFixture,
                           public testing::WithParamInterface<Provider> {
 protected:
  static std::shared_ptr<const kvl::Environment> onThisBus() {
    using namespace kvl::security;
    return surroundings(makeFallbackKeyStore({makeSecretServiceKeyStore(), makeMemoryKeyStore()}));
  }
  static std::size_t storedKeys(const kvl::Environment& environment) {
    using namespace kvl::security;
    std::vector<StoredKey> keys;
    EXPECT_EQ(environment.keyStore()->find("org.example.NotaryTest", keys,
                                           std::chrono::steady_clock::now() + kKeyStoreTimeLimit),
              kvl::kSuccess);
    return keys.size();
  }
  static void expectNobodyWasAsked(const SecretProvider& provider) {
    EXPECT_EQ(provider.count("Prompt"), 0);
    EXPECT_EQ(provider.count("CreateCollection"), 0);
  }

  kvltest::PrivateBus bus;
  const kvltest::SessionBusVariable variable{bus.address()};
};

TEST_P(NotaryProviderTest, HasItsPairAndItsIdentity) {
  const SecretProvider provider(bus.address(), GetParam().manners);
  const auto surroundings = onThisBus();
  auto notary = std::make_unique<KVLNotary>(std::nullopt, surroundings);
  ASSERT_NE(notary->privateKey(), nullptr);
  EXPECT_EQ(storedKeys(*surroundings), 2U);
  EXPECT_TRUE(notary->pemCertificateSigningRequest());
  EXPECT_EQ(log.count("key store: keys are kept in the process memory"), 1U);
  script.reply = kvl::Dictionary{{"url", kvltest::kURLs}, {"certificate", certificateFor(*notary)}};
  const auto signature = notarise(*notary).signature;
  ASSERT_NE(signature, nullptr);
  EXPECT_NE(signature->identity(), nullptr);
  notary.reset();
  EXPECT_EQ(storedKeys(*surroundings), 0U);
  expectNobodyWasAsked(provider);
}

INSTANTIATE_TEST_SUITE_P(
    Providers, NotaryProviderTest,
    testing::Values(Provider{"WithoutASessionCollection", {.hasSessionCollection = false}},
                    Provider{"ThatAsksBeforeItUnlocks", {.prompts = {"Unlock"}}},
                    Provider{"ThatAsksBeforeItKeeps", {.prompts = {"CreateItem"}}},
                    Provider{"WithoutEncryption", {.encrypts = false}},
                    Provider{"ThatHangs", {.hangs = {"ReadAlias"}}},
                    Provider{"ThatDies", {.dies = {"CreateItem"}}}),
    [](const auto& param) { return param.param.name; });

using NotaryProviderDeletionTest = NotaryProviderTest;

TEST_F(NotaryProviderDeletionTest, ThatWouldAskTheUserFailsAndIsLogged) {
  SecretProvider provider(bus.address(), {});
  auto notary = std::make_unique<KVLNotary>(std::nullopt, onThisBus());
  EXPECT_EQ(provider.items().size(), 2U);
  provider.behave({.prompts = {"Delete"}});
  notary.reset();
  EXPECT_EQ(log.count("key deletion error: Error Domain=NSOSStatusErrorDomain Code=-25308"), 1U);
  expectNobodyWasAsked(provider);
}

}  // namespace
