// Operations of the kernel keyring's store wait for one that a thread is in the middle of.
#include "platform/security/KernelKeyring.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <keyutils.h>

#include <atomic>
#include <functional>

namespace {

std::atomic<const std::function<void()>*> beforeAKeyIsMade = nullptr;

}  // namespace

// In the place of the library's own, which it calls in the end.
extern "C" key_serial_t add_key(const char* type, const char* description, const void* payload,
                                std::size_t size, key_serial_t keyring) {
  if (const auto* const place = beforeAKeyIsMade.load()) (*place)();
  static const auto next = reinterpret_cast<decltype(&add_key)>(dlsym(RTLD_NEXT, "add_key"));
  return next(type, description, payload, size, keyring);
}

namespace kvl::security {
namespace {

using kvltest::OtherThread;
using kvltest::soon;
using kvltest::storedKey;

TEST(KernelKeyringLockTest, WhileAKeyIsAddedNobodyElseAddsFindsOrRemoves) {
  const auto store = makeKernelKeyringKeyStore();
  const auto tag = kvltest::uniqueTag();
  if (store->add(storedKey(tag), soon()) != kSuccess) GTEST_SKIP() << "no kernel keyring here";
  const kvltest::Halt halt;
  const auto place = halt.place();
  beforeAKeyIsMade = &place;
  const auto add = [&] { EXPECT_EQ(store->add(storedKey(tag), soon()), kSuccess); };
  {
    const OtherThread first(add);
    ASSERT_TRUE(halt.isReached());
    const OtherThread adding(add);
    EXPECT_TRUE(adding.isWaiting());
    const OtherThread finding([&] {
      std::vector<StoredKey> keys;
      EXPECT_EQ(store->find(tag, keys, soon()), kSuccess);
    });
    EXPECT_TRUE(finding.isWaiting());
    const OtherThread removing([&] { (void)store->remove(tag, std::nullopt, soon()); });
    EXPECT_TRUE(removing.isWaiting());
    halt.letGo();
  }
  beforeAKeyIsMade = nullptr;
  (void)store->remove(tag, std::nullopt, soon());
}

}  // namespace
}  // namespace kvl::security
