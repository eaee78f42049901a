#include "tests/security/KeyStoreSupport.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

namespace kvl::security {
namespace {

using kvltest::soon;

TEST(DefaultKeyStoreTest, IsOneForTheProcess) {
  EXPECT_EQ(defaultKeyStore(), defaultKeyStore());
}

TEST(DefaultKeyStoreTest, WorksWithoutABusAtOnce) {
  const kvltest::SessionBusVariable none("");
  kvltest::LogCapture log;
  const std::string tag = kvltest::uniqueTag();
  const std::shared_ptr<KeyStore> store = makeDefaultKeyStore();
  const Deadline deadline = soon(kKeyStoreTimeLimit);
  EXPECT_EQ(store->add(kvltest::storedKey(tag), deadline), kSuccess);
  EXPECT_EQ(store->remove(tag, std::nullopt, deadline), kSuccess);
  EXPECT_LT(std::chrono::steady_clock::now(), deadline);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(DefaultKeyStoreTest, KeepsKeysWithoutDescriptors) {
  const std::string tag = kvltest::uniqueTag();
  const std::shared_ptr<KeyStore> store = makeDefaultKeyStore();
  std::vector<StoredKey> keys;
  {
    const kvltest::NoDescriptors none(kvltest::kLeftToSanitizers);
    EXPECT_EQ(store->add(kvltest::storedKey(tag), soon()), kSuccess);
    EXPECT_EQ(store->find(tag, keys, soon()), kSuccess);
    EXPECT_EQ(store->remove(tag, std::nullopt, soon()), errSecInternalComponent);
  }
  EXPECT_EQ(keys.size(), 1U);
}

TEST(DefaultKeyStoreTest, PrefersTheSecretService) {
  kvltest::PrivateBus bus;
  bus.startKeyring();
  const kvltest::SessionBusVariable variable(bus.address());
  kvltest::LogCapture log;
  const std::string tag = kvltest::uniqueTag();
  ASSERT_EQ(makeDefaultKeyStore()->add(kvltest::storedKey(tag), soon()), kSuccess);
  std::vector<StoredKey> keys;
  ASSERT_EQ(makeSecretServiceKeyStore()->find(tag, keys, soon()), kSuccess);
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace kvl::security
