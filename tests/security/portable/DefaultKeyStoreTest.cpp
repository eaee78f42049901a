#include "tests/security/KeyStoreSupport.h"

#include <gtest/gtest.h>

namespace kvl::security {
namespace {

using kvltest::soon;

TEST(DefaultKeyStoreTest, IsOneForTheProcess) {
  EXPECT_EQ(defaultKeyStore(), defaultKeyStore());
}

TEST(DefaultKeyStoreTest, KeepsKeysInTheProcessAndSaysNothingOfIt) {
  kvltest::LogCapture log;
  const std::string tag = kvltest::uniqueTag();
  EXPECT_EQ(makeDefaultKeyStore()->add(kvltest::storedKey(tag), soon()), kSuccess);
  std::vector<StoredKey> keys;
  EXPECT_EQ(makeMemoryKeyStore()->find(tag, keys, soon()), kSuccess);
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_EQ(makeDefaultKeyStore()->remove(tag, std::nullopt, soon()), kSuccess);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace kvl::security
