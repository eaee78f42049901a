#include "platform/security/KernelKeyring.h"
#include "platform/security/KeyPayload.h"
#include "tests/security/KeyStoreSupport.h"

#include <gtest/gtest.h>
#include <keyutils.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <thread>

namespace kvl::security {
namespace {

using kvltest::soon;
using kvltest::storedKey;

class KernelKeyringTest : public testing::Test {
 protected:
  void SetUp() override {
    std::vector<kernel::Serial> entries;
    if (const int error = kernel::list(kernel::userKeyring(), entries))
      GTEST_SKIP() << "no kernel keyring here: " << std::strerror(error);
  }
  void TearDown() override { (void)store_->remove(tag_, std::nullopt, soon()); }

  kernel::Serial ring() {
    kernel::Serial found = 0;
    EXPECT_EQ(kernel::findRing("korvale.vandrel.local.keys:" + tag_, kernel::userKeyring(), found),
              0);
    return found;
  }
  std::vector<kernel::Serial> entries(kernel::Serial ring) {
    std::vector<kernel::Serial> found;
    EXPECT_EQ(kernel::list(ring, found), 0);
    return found;
  }
  std::vector<StoredKey> find() {
    std::vector<StoredKey> keys;
    EXPECT_EQ(store_->find(tag_, keys, soon()), kSuccess);
    return keys;
  }

  const std::string tag_ = kvltest::uniqueTag();
  const std::shared_ptr<KeyStore> store_ = makeKernelKeyringKeyStore();
};

TEST_F(KernelKeyringTest, KeepsOneRingPerTagInTheUserKeyring) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  EXPECT_EQ(entries(ring()).size(), 2U);
  const auto description = kernel::describe(ring());
  ASSERT_TRUE(description);
  EXPECT_EQ(description->type, "keyring");
  EXPECT_TRUE(description->isOwn);
  EXPECT_EQ(description->text, "korvale.vandrel.local.keys:" + tag_);
}

TEST_F(KernelKeyringTest, RemovingTheLastKeyRemovesTheRing) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  ASSERT_EQ(store_->remove(tag_, Key::Class::privateKey, soon()), kSuccess);
  kernel::Serial found = 0;
  EXPECT_EQ(kernel::findRing("korvale.vandrel.local.keys:" + tag_, kernel::userKeyring(), found),
            ENOKEY);
}

TEST_F(KernelKeyringTest, RemovedKeysCannotBeReadByWhoeverKnowsTheirNumber) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  const kernel::Serial key = entries(ring()).front();
  ASSERT_TRUE(kernel::read(key));
  ASSERT_EQ(store_->remove(tag_, std::nullopt, soon()), kSuccess);
  EXPECT_FALSE(kernel::read(key));
}

TEST_F(KernelKeyringTest, PassesOverWhatOthersPutIntoItsRing) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  const WipedBytes whole = encodePayload(storedKey(tag_));
  ASSERT_EQ(kernel::makeKey("garbage", Bytes{1, 2, 3}, ring()), 0);
  ASSERT_EQ(kernel::makeKey("half", std::span(whole).first(whole.size() / 2), ring()), 0);
  EXPECT_EQ(find().size(), 1U);
  EXPECT_EQ(store_->remove(tag_, std::nullopt, soon()), kSuccess);
  EXPECT_TRUE(find().empty());
}

TEST_F(KernelKeyringTest, ProcessesWithAnotherSessionSeeTheKeys) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  // Such a process does not possess the user keyring, so only its user's permissions count.
  std::promise<std::size_t> found;
  std::thread([&] {
    keyctl_join_session_keyring(nullptr);
    found.set_value(find().size());
  }).join();
  EXPECT_EQ(found.get_future().get(), 1U);
}

TEST_F(KernelKeyringTest, AFullQuotaIsToldAndOtherStoresGoOn) {
  constexpr uid_t kOtherUser = 54321;
  if (geteuid() != 0) GTEST_SKIP() << "only root can borrow another user's quota";
  Status last = kSuccess;
  std::size_t count = 0;
  // Straight to the kernel: only this thread becomes the other user.
  std::thread([&] {
    if (syscall(SYS_setresuid, kOtherUser, kOtherUser, kOtherUser) != 0) return;
    while (last == kSuccess && count < 1000) {
      last = store_->add(storedKey(tag_), soon());
      if (last == kSuccess) ++count;
    }
    (void)store_->remove(tag_, std::nullopt, soon());
  }).join();
  EXPECT_GT(count, 0U);
  EXPECT_EQ(last, errSecDataTooLarge);
}

}  // namespace
}  // namespace kvl::security
