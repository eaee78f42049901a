// A notary keeps its identity, whatever becomes of the user's keyring.
#include "tests/notary/NotaryKeyStoreFixture.h"
#include "tests/support/PrivateBus.h"

namespace kvltest {
namespace {

struct Mishap {
  const char* name;
  void (*happen)(PrivateBus& bus);
};

class KeyStoreMishapTest : public NotaryKeyStoreFixture,
                           public testing::WithParamInterface<Mishap> {
 protected:
  KeyStoreMishapTest() { bus.startKeyring(); }

  PrivateBus bus;
  const SessionBusVariable variable{bus.address()};
};

void lockCollection(PrivateBus& bus) {
  ChildProcess lock(
      {"gdbus", "call", "--address", bus.address(), "--dest", "org.freedesktop.secrets",
       "--object-path", "/org/freedesktop/secrets", "--method",
       "org.freedesktop.Secret.Service.Lock", "['/org/freedesktop/secrets/collection/session']"},
      environmentWith({}), bus.directory() / "lock.log");
  EXPECT_EQ(lock.wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Mishaps, KeyStoreMishapTest,
    testing::Values(Mishap{"Restarted",
                           [](PrivateBus& bus) {
                             bus.killKeyring();
                             bus.startKeyring();
                           }},
                    Mishap{"Gone", [](PrivateBus& bus) { bus.killKeyring(); }},
                    Mishap{"Hung", [](PrivateBus& bus) { bus.freezeKeyring(); }},
                    Mishap{"Locked", &lockCollection},
                    Mishap{"WithoutItsBus", [](PrivateBus& bus) { bus.stop(); }}),
    [](const auto& test) { return test.param.name; });

TEST_P(KeyStoreMishapTest, RenewalBringsTheIdentityAtOnce) {
  const auto store = kvl::security::makeSecretServiceKeyStore();
  auto notary = std::make_unique<KVLNotary>(std::nullopt, surroundings(store));
  ASSERT_EQ(find(*store), kvl::kSuccess);
  GetParam().happen(bus);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_NE(renewed(*notary), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kvl::security::kKeyStoreTimeLimit);
  EXPECT_EQ(log.count("client identity error"), 0U);
  bus.thawKeyring();
}

}  // namespace
}  // namespace kvltest
