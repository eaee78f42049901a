#include "platform/security/KernelKeyring.h"
#include "platform/security/KeyPayload.h"
#include "tests/security/KeyStoreSupport.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <keyutils.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
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

TEST_F(KernelKeyringTest, ARingStaysWhileAKeyIsLeftInIt) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  ASSERT_EQ(store_->add(storedKey(tag_, Key::Class::publicKey), soon()), kSuccess);
  const kernel::Serial before = ring();
  ASSERT_EQ(store_->remove(tag_, Key::Class::privateKey, soon()), kSuccess);
  EXPECT_EQ(ring(), before);
  EXPECT_EQ(find().size(), 1U);
}

TEST_F(KernelKeyringTest, NothingCanBePutIntoARemovedRingThatSomebodyHolds) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  const kernel::Serial held = ring();
  ASSERT_EQ(kernel::link(held, KEY_SPEC_PROCESS_KEYRING), 0);
  ASSERT_EQ(store_->remove(tag_, std::nullopt, soon()), kSuccess);
  EXPECT_EQ(kernel::makeKey("late", Bytes{1}, held), EKEYREVOKED);
  EXPECT_EQ(kernel::unlink(held, KEY_SPEC_PROCESS_KEYRING), 0);
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

bool hasRing(const std::string& tag) {
  kernel::Serial ring = 0;
  return kernel::findRing("korvale.vandrel.local.keys:" + tag, kernel::userKeyring(), ring) == 0;
}

TEST_F(KernelKeyringTest, ADeletionThatFailsIsToldWhateverOtherStoresSay) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  constexpr key_perm_t kReadOnly = KEY_USR_VIEW | KEY_USR_READ | KEY_USR_SEARCH | KEY_USR_SETATTR;
  ASSERT_EQ(keyctl_setperm(ring(), kReadOnly), 0);
  const auto chain = makeFallbackKeyStore({store_, makeMemoryKeyStore()});
  EXPECT_EQ(chain->remove(tag_, std::nullopt, soon()), errSecInternalComponent);
  ASSERT_EQ(keyctl_setperm(ring(), KEY_POS_ALL | KEY_USR_ALL), 0);
  EXPECT_EQ(chain->remove(tag_, std::nullopt, soon()), kSuccess);
  EXPECT_FALSE(hasRing(tag_));
}

// Gives up root's own, large quota; everybody else has a plain user's already. For this thread
// only.
void becomePlainUser() {
  constexpr uid_t kPlainUser = 54322;
  if (geteuid() == 0) syscall(SYS_setresuid, kPlainUser, kPlainUser, kPlainUser);
}

template <class Operation>
auto asPlainUser(Operation operation) {
  return std::async(std::launch::async,
                    [&] {
                      becomePlainUser();
                      return operation();
                    })
      .get();
}

Status addPair(const std::string& tag) {
  const auto store = makeKernelKeyringKeyStore();
  const Status status = store->add(storedKey(tag, Key::Class::publicKey), soon());
  return status == kSuccess ? store->add(storedKey(tag), soon()) : status;
}

Status removePair(const std::string& tag) {
  return makeKernelKeyringKeyStore()->remove(tag, std::nullopt, soon());
}

std::size_t keysOf(const std::string& tag) {
  std::vector<StoredKey> keys;
  EXPECT_EQ(makeKernelKeyringKeyStore()->find(tag, keys, soon()), kSuccess);
  return keys.size();
}

// A program of a plain user that adds a pair and then lives until it is killed, so that it deletes
// nothing.
class Program {
 public:
  explicit Program(const std::string& tag) {
    int ends[2];
    if (pipe(ends) != 0) return;
    id_ = fork();
    if (id_ == 0) {
      becomePlainUser();
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const Status status = addPair(tag);
      (void)!write(ends[1], &status, sizeof status);
      while (true) pause();
    }
    (void)!read(ends[0], &status_, sizeof status_);
    close(ends[0]);
    close(ends[1]);
  }
  ~Program() {
    if (id_ <= 0) return;
    kill();
    waitpid(id_, nullptr, 0);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  Status status() const { return status_; }
  // Returns when it has ended, though its number is still taken.
  void kill() const {
    siginfo_t end{};
    ::kill(id_, SIGKILL);
    waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOWAIT);
  }

 private:
  pid_t id_ = 0;
  Status status_ = errSecInternalComponent;
};

TEST_F(KernelKeyringTest, WhatEndedProgramsLeftBehindMakesWay) {
  const std::string living = kvltest::uniqueTag();
  const Program other(living);
  ASSERT_EQ(other.status(), kSuccess);
  std::vector<std::string> ended;
  for (int i = 0; i < 40; ++i) {
    ended.push_back(kvltest::uniqueTag());
    const Program program(ended.back());
    EXPECT_EQ(program.status(), kSuccess) << i;
    EXPECT_EQ(asPlainUser([&] { return keysOf(ended.back()); }), 2U);
  }
  EXPECT_EQ(asPlainUser([&] { return addPair(tag_); }), kSuccess);
  EXPECT_EQ(asPlainUser([&] { return keysOf(tag_); }), 2U);
  EXPECT_EQ(asPlainUser([&] { return keysOf(living); }), 2U);
  for (const std::string& tag : ended) EXPECT_FALSE(asPlainUser([&] { return hasRing(tag); }));
  EXPECT_EQ(asPlainUser([&] { return removePair(living); }), kSuccess);
  EXPECT_EQ(asPlainUser([&] { return removePair(tag_); }), kSuccess);
}

TEST_F(KernelKeyringTest, AFullKeyringHasRoomOnceItsProgramsHaveEnded) {
  std::vector<std::unique_ptr<Program>> programs;
  do {
    programs.push_back(std::make_unique<Program>(kvltest::uniqueTag()));
  } while (programs.back()->status() == kSuccess && programs.size() < 40);
  EXPECT_GT(programs.size(), 2U);
  if (geteuid() == 0) EXPECT_EQ(programs.back()->status(), errSecDataTooLarge);
  programs.clear();
  EXPECT_EQ(asPlainUser([&] { return addPair(tag_); }), kSuccess);
  EXPECT_EQ(asPlainUser([&] { return removePair(tag_); }), kSuccess);
}

TEST_F(KernelKeyringTest, AProgramThatNobodyWaitedForHasEnded) {
  const std::string ended = kvltest::uniqueTag();
  const Program program(ended);
  ASSERT_EQ(program.status(), kSuccess);
  program.kill();
  EXPECT_EQ(asPlainUser([&] { return addPair(tag_); }), kSuccess);
  EXPECT_EQ(asPlainUser([&] { return keysOf(ended); }), 0U);
  EXPECT_EQ(asPlainUser([&] { return removePair(tag_); }), kSuccess);
}

TEST_F(KernelKeyringTest, WhatNobodyIsKnownToHaveMadeStays) {
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  const WipedBytes payload = encodePayload(storedKey(tag_));
  const std::string old = "key-00112233445566778899aabbccddeeff";
  const std::string elsewhere = old + "-1.0123456789abcdef.1.1";
  for (const std::string& name : {old, elsewhere, old + "-2.what.ever", std::string("other")})
    ASSERT_EQ(kernel::makeKey(name, payload, ring()), 0);
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  EXPECT_EQ(find().size(), 6U);
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

// A process of another user, with a session of its own; it inherits nobody's keys.
template <class Attempt>
bool succeedsForAnotherUser(Attempt attempt) {
  constexpr uid_t kOtherUser = 65534;
  const pid_t child = fork();
  if (child == 0) {
    const bool isOther = setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
                         setresuid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
                         keyctl_join_session_keyring(nullptr) >= 0;
    _exit(!isOther || attempt() ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status != 0;
}

TEST_F(KernelKeyringTest, AnotherUserWhoKnowsTheNumbersGetsNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  ASSERT_EQ(store_->add(storedKey(tag_), soon()), kSuccess);
  const kernel::Serial keys = ring();
  const kernel::Serial key = entries(keys).front();
  char content = 0;
  for (const kernel::Serial serial : {keys, key}) {
    EXPECT_FALSE(succeedsForAnotherUser([&] { return keyctl_read(serial, &content, 1) >= 0; }));
    EXPECT_FALSE(succeedsForAnotherUser([&] { return keyctl_describe(serial, &content, 1) >= 0; }));
    EXPECT_FALSE(
        succeedsForAnotherUser([&] { return keyctl_link(serial, KEY_SPEC_SESSION_KEYRING) >= 0; }));
    EXPECT_FALSE(succeedsForAnotherUser([&] { return keyctl_revoke(serial) >= 0; }));
  }
  EXPECT_FALSE(succeedsForAnotherUser(
      [&] { return keyctl_link(key, keys) >= 0 || keyctl_clear(keys) >= 0; }));
  EXPECT_EQ(find().size(), 1U);
}

TEST(AnotherUserTest, ReadsNeitherMemoryNorEnvironment) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  const std::string folder = "/proc/" + std::to_string(getpid());
  for (const char* file : {"/mem", "/environ", "/maps"}) {
    const std::string path = folder + file;
    EXPECT_FALSE(succeedsForAnotherUser([&] { return open(path.c_str(), O_RDONLY) >= 0; })) << file;
  }
}

}  // namespace
}  // namespace kvl::security
