// A notary whose keys are made on a thread of the framework's.
#include "notary/NotaryKeys.h"
#include "platform/security/Operations.h"
#include "tests/notary/NotaryFixture.h"
#include "tests/notary/OwnKeys.h"
#include "tests/support/ForwardingKeyStore.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"

#include <local/platform/Semaphore.h>

#include <array>
#include <atomic>
#include <thread>
#include <utility>

namespace kvltest {
namespace {

// A store in memory that notes the thread that stores keys, and lets the test stop it there.
class WatchedStore final : public ForwardingKeyStore {
 public:
  [[nodiscard]] kvl::Status add(const StoredKey& key, Deadline deadline) override {
    thread = std::this_thread::get_id();
    if (whenAKeyIsStored) whenAKeyIsStored();
    return refuses ? kvl::Status{-25308} : ForwardingKeyStore::add(key, deadline);
  }

  std::atomic<std::thread::id> thread;
  std::function<void()> whenAKeyIsStored;
  bool refuses = false;
};

class BackgroundNotaryTest : public NotaryFixture {
 protected:
  BackgroundNotaryTest() { script.reply = kvl::Dictionary{{"url", kURLs}}; }

  void make(const std::shared_ptr<kvl::DispatchQueue>& queue) {
    notary = KVLNotary::notaryInBackground("/a/path", surroundings(store, queue));
  }
  [[nodiscard]] bool areKeysStored() const {
    std::vector<kvl::KeyRef> keys;
    return SecItemCopyMatching(*store, KVLNotary::keyQuery(), keys) == kvl::kSuccess;
  }
  // Their order and what came of them.
  void ask(int number) {
    notary->notariseWithCompletionHandler(
        [this, number](const std::shared_ptr<KVLNotarySignature>& signature,
                       const std::optional<kvl::Error>& error) {
          answered.push_back(signature ? number : -number);
          if (error) EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
        });
  }

  const std::shared_ptr<WatchedStore> store = std::make_shared<WatchedStore>();
  const std::shared_ptr<HeldQueue> lookups = std::make_shared<HeldQueue>();
  std::shared_ptr<KVLNotary> notary;
  std::vector<int> answered;
};

TEST_F(BackgroundNotaryTest, NotarisationsWaitForTheKeysInTheirOrder) {
  make(lookups);
  EXPECT_EQ(notary->path(), "/a/path");
  EXPECT_FALSE(notary->hasKeys());
  EXPECT_EQ(notary->publicKey(), nullptr);
  ask(1);
  ask(2);
  notary->setPath("/another");
  ask(3);
  EXPECT_EQ(script.connections, 0);
  EXPECT_EQ(lookups->waiting(), 1U);
  lookups->run();
  EXPECT_TRUE(notary->hasKeys());
  EXPECT_NE(notary->publicKey(), nullptr);
  EXPECT_EQ(answered, (std::vector{1, 2, 3}));
  EXPECT_EQ(script.path, "/another");
  EXPECT_EQ(script.request, (kvl::Dictionary{{"csr", *notary->pemCertificateSigningRequest()}}));
  ask(4);
  EXPECT_EQ(answered.back(), 4) << "nobody waits any more";
}

TEST_F(BackgroundNotaryTest, NeverOnTheCallersThreadWhichGoesOn) {
  const Halt halt;
  store->whenAKeyIsStored = halt.place();
  make(kvl::Environment::processLookupQueue());
  ASSERT_TRUE(halt.isReached());
  EXPECT_FALSE(notary->hasKeys());
  kvl::Semaphore told;
  notary->notariseWithCompletionHandler([&](auto&&...) { told.signal(); });
  EXPECT_FALSE(told.tryWait());
  halt.letGo();
  ASSERT_TRUE(told.waitFor(std::chrono::seconds(60)));
  EXPECT_TRUE(notary->hasKeys());
  EXPECT_NE(store->thread.load(), std::this_thread::get_id());
  // The connection is closed after the handler.
  kvl::Environment::processLookupQueue()->async([&] { told.signal(); });
  ASSERT_TRUE(told.waitFor(std::chrono::seconds(60)));
}

TEST_F(BackgroundNotaryTest, FailsAsTheOtherDoes) {
  store->refuses = true;
  make(lookups);
  ask(1);
  lookups->run();
  EXPECT_EQ(log.count("key creation error: Error Domain=NSOSStatusErrorDomain Code=-25308"), 1U);
  EXPECT_EQ(answered, std::vector{1});
  EXPECT_TRUE(script.request.empty());
  EXPECT_FALSE(notary->hasKeys());
}

// The last session ends while somebody makes the keys and waits for them.
TEST_F(BackgroundNotaryTest, WhoeverWaitsHasKeysThatAreRemovedMeanwhileMadeAgain) {
  const auto keys = std::make_shared<kvl::notary::NotaryKeys>(
      surroundings(store, kvl::Environment::processLookupQueue()));
  kvl::Semaphore areRemoved;
  keys->addUser();
  bool hasEnded = false;
  store->whenAKeyIsStored = [&] {
    if (std::exchange(hasEnded, true)) return;
    keys->endUser([&](auto&&...) { areRemoved.signal(); });
  };
  keys->make();
  ASSERT_TRUE(areRemoved.waitFor(std::chrono::seconds(60)));
  EXPECT_NE(keys->publicKey.get(), nullptr);
  EXPECT_TRUE(areKeysStored());
}

TEST_F(BackgroundNotaryTest, DestroyedBeforeTheyAreMadeItLeavesNone) {
  make(lookups);
  ask(1);
  notary.reset();
  EXPECT_EQ(answered, std::vector{-1});
  EXPECT_EQ(script.connections, 1);
  EXPECT_TRUE(script.steps.empty()) << "nothing was sent";
  while (lookups->waiting() > 0) lookups->run();
  EXPECT_FALSE(areKeysStored());
  EXPECT_EQ(store->thread.load(), std::thread::id());
}

TEST_F(BackgroundNotaryTest, DestroyedWhileTheyAreMadeItLeavesNone) {
  const Halt halt;
  store->whenAKeyIsStored = halt.place();
  make(lookups);
  OtherThread making([this] {
    while (lookups->waiting() > 0) lookups->run();
  });
  ASSERT_TRUE(halt.isReached());
  notary.reset();  // which waits for nobody
  halt.letGo();
  making.join();
  EXPECT_FALSE(areKeysStored());
}

TEST_F(BackgroundNotaryTest, DestroyedInItsCompletionItLeavesNone) {
  make(lookups);
  notary->notariseWithCompletionHandler([&](const auto& signature, const auto& error) {
    EXPECT_TRUE(signature && !error);
    EXPECT_TRUE(areKeysStored());
    notary.reset();
    answered.push_back(1);
  });
  ask(2);
  while (lookups->waiting() > 0) lookups->run();
  EXPECT_EQ(answered, (std::vector{1, 2})) << "the keys were there when it was asked";
  EXPECT_FALSE(areKeysStored());
}

TEST_F(BackgroundNotaryTest, EightThreadsThatAskMeanwhileAreToldOnceEach) {
  constexpr int kThreads = 8;
  const Halt halt;
  store->whenAKeyIsStored = halt.place();
  make(kvl::Environment::processLookupQueue());
  ASSERT_TRUE(halt.isReached());
  std::atomic<int> told = 0;
  kvl::Semaphore all;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      notary->notariseWithCompletionHandler([&](const auto& signature, const auto&) {
        EXPECT_TRUE(signature);
        ++told;
        all.signal();
      });
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(told, 0);
  halt.letGo();
  for (int i = 0; i < kThreads; ++i) ASSERT_TRUE(all.waitFor(std::chrono::seconds(60)));
  // The connections are closed after the handlers.
  kvl::Environment::processLookupQueue()->async([&] { all.signal(); });
  ASSERT_TRUE(all.waitFor(std::chrono::seconds(60)));
  EXPECT_EQ(told, kThreads);
  EXPECT_EQ(script.connections, kThreads);
}

// Runs in a process of its own, since the shared notary is made once.
void makeSharedNotaryInBackground() {
  int result = 0;
  {
    const OwnKeys own("org.example.BackgroundNotaryTest");
    const auto first = KVLNotary::sharedNotaryInBackground();
    if (KVLNotary::sharedNotaryInBackground() != first) result = 1;
    if (KVLNotary::sharedNotary() != first || !first->hasKeys()) result = 2;
    const auto key = first->publicKey();
    if (KVLNotary::sharedNotary()->publicKey() != key) result = 3;
  }
  _exit(testing::Test::HasFailure() ? 9 : result);
}

TEST_F(BackgroundNotaryTest, IsTheSharedOneWhichWaitsForItsKeys) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(makeSharedNotaryInBackground(), testing::ExitedWithCode(0), "");
}

void askForTheSharedNotaryOnEightThreads() {
  int result = 0;
  {
    const OwnKeys own("org.example.BackgroundNotaryTest.Threads");
    std::array<std::shared_ptr<KVLNotary>, 8> got;
    std::array<kvl::KeyRef, 8> keys;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < got.size(); ++i) {
      threads.emplace_back([&, i] {
        got[i] = KVLNotary::sharedNotaryInBackground();
        if (i % 2 == 0) got[i] = KVLNotary::sharedNotary();  // which waits for the keys
        if (i % 2 == 0) keys[i] = got[i]->publicKey();
      });
    }
    for (auto& thread : threads) thread.join();
    const auto key = got[0]->publicKey();
    if (!key) result = 1;
    for (std::size_t i = 0; i < got.size(); ++i) {
      if (got[i] != got[0]) result = 2;
      if (i % 2 == 0 && keys[i] != key) result = 3;
    }
    std::vector<kvl::KeyRef> stored;
    const auto store = kvl::Environment::process()->keyStore();
    if (SecItemCopyMatching(*store, KVLNotary::keyQuery(), stored) != kvl::kSuccess) result = 4;
    if (stored.size() != 1) result = 5;  // the private one
  }
  _exit(testing::Test::HasFailure() ? 9 : result);
}

TEST_F(BackgroundNotaryTest, TheSharedOneIsMadeOnceHoweverManyThreadsAsk) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(askForTheSharedNotaryOnEightThreads(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kvltest
