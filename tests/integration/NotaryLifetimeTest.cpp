// Notary clients that go while they are asked, and sessions that share one.
#include "platform/environment/Environment.h"
#include "platform/security/Operations.h"
#include "tests/integration/LocalService.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/WaitUntil.h"

#include <atomic>
#include <csignal>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace kvltest;

// What became of one request to the notary.
struct Answered {
  std::atomic<int> calls = 0;
  std::shared_ptr<KVLNotarySignature> signature;
  std::optional<kvl::Dictionary> reply;
  kvl::Semaphore done;
};

bool hasKeysInTheStore() {
  std::vector<kvl::KeyRef> keys;
  return SecItemCopyMatching(*kvl::security::defaultKeyStore(), KVLNotary::keyQuery(), keys) ==
         kvl::kSuccess;
}

class NotaryLifetimeTest : public LocalService {
 protected:
  void SetUp() override {
    process = startNotary({"--url", "https://127.0.0.1:1/"});
    notary = KVLNotary::notaryWithPath(std::nullopt);
    ASSERT_TRUE(hasKeysInTheStore());
  }

  // Both kinds of request, which are answered when the notary goes on.
  void askWhileItHangs() {
    process.signal(SIGSTOP);
    notary->notariseWithCompletionHandler(
        [answer = signed_](std::shared_ptr<KVLNotarySignature> signature, const auto&) {
          ++answer->calls;
          answer->signature = std::move(signature);
          answer->done.signal();
        });
    notary->sendNotary(std::nullopt, {},
                       [answer = sent_](std::optional<kvl::Dictionary> reply, const auto&) {
                         ++answer->calls;
                         answer->reply = std::move(reply);
                         answer->done.signal();
                       });
  }

  // Once each, and what a handler holds goes with it.
  void expectBothAnswers() {
    process.signal(SIGCONT);
    ASSERT_TRUE(signed_->done.waitFor(kPatience) && sent_->done.waitFor(kPatience));
    EXPECT_NE(signed_->signature, nullptr);
    EXPECT_TRUE(sent_->reply.has_value());
    EXPECT_TRUE(waitUntil([&] { return signed_.use_count() == 1 && sent_.use_count() == 1; }));
    EXPECT_EQ(signed_->calls, 1);
    EXPECT_EQ(sent_->calls, 1);
  }

  ChildProcess process;
  std::shared_ptr<KVLNotary> notary;

 private:
  std::shared_ptr<Answered> signed_ = std::make_shared<Answered>();
  std::shared_ptr<Answered> sent_ = std::make_shared<Answered>();
};

TEST_F(NotaryLifetimeTest, DestroyedWhileItIsAskedItTakesItsKeysAndLeavesTheAnswers) {
  askWhileItHangs();
  notary.reset();
  EXPECT_FALSE(hasKeysInTheStore());
  expectBothAnswers();
  // The certificate is for a key that nobody has any more.
  EXPECT_TRUE(log.waitFor("client identity error: ", 1, kPatience));
}

TEST_F(NotaryLifetimeTest, DestroyedOnAnotherThreadWhileItIsAskedItLeavesTheAnswers) {
  askWhileItHangs();
  std::jthread([held = std::exchange(notary, nullptr)]() mutable { held.reset(); }).join();
  EXPECT_FALSE(hasKeysInTheStore());
  expectBothAnswers();
}

// On the reply thread, which then waits for the key store.
TEST_F(NotaryLifetimeTest, DestroyedInsideItsOwnHandlerItHasGivenTheIdentity) {
  auto answer = std::make_shared<Answered>();
  KVLNotary& asked = *notary;
  asked.notariseWithCompletionHandler(
      [answer, held = std::exchange(notary, nullptr)](auto signature, const auto&) mutable {
        held.reset();
        answer->signature = std::move(signature);
        answer->done.signal();
      });
  ASSERT_TRUE(answer->done.waitFor(kPatience));
  ASSERT_NE(answer->signature, nullptr);
  EXPECT_NE(answer->signature->identity(), nullptr);
  EXPECT_FALSE(hasKeysInTheStore());
}

class SharedNotaryTest : public LocalService {
 protected:
  void SetUp() override {
    process = startNotary({});
    startService();
    auto notary = KVLNotary::notaryWithPath(std::nullopt);
    environment->frameworkQueue = [timers = timers](const std::string&) { return timers; };
    session = KVLSession::sessionWithNotary(notary, {}, environment);
    states = std::make_unique<StateWatcher>(*session);
    second = KVLSession::sessionWithNotary(std::move(notary), {}, environment);
    StateWatcher secondStates(*second);
    ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
    ASSERT_TRUE(secondStates.waitFor(KVLSessionStateEstablished));
  }
  // Timers hold their sessions, which hold the queue.
  void TearDown() override { timers->dropPending(); }

  // From here on until `finishRenewal` the notary has the request and does not answer.
  void beginRenewal() {
    process.signal(SIGSTOP);
    before = session->signature();
    session->enqueueNotarisation();
  }
  void finishRenewal() {
    process.signal(SIGCONT);
    ASSERT_TRUE(waitUntil([&] { return session->signature() != before; }));
    expectIdentity(*session);
    EXPECT_EQ(get("status").status(), 200);
  }
  static void expectIdentity(const KVLSession& renewed) {
    const auto signature = renewed.signature();
    ASSERT_NE(signature, nullptr);
    EXPECT_NE(signature->identity(), nullptr);
  }
  // Nothing but its requests and its timers holds a session.
  [[nodiscard]] std::weak_ptr<KVLSession> letGoOfTheSecond() {
    const std::weak_ptr<KVLSession> watch = second;
    second.reset();
    timers->dropPending();
    return watch;
  }
  void expectToGo(const std::weak_ptr<KVLSession>& watch) const {
    EXPECT_TRUE(waitUntil([&] {
      timers->dropPending();
      return watch.expired();
    }));
  }

  ChildProcess process;
  const std::shared_ptr<DrivenQueue> timers = std::make_shared<DrivenQueue>();
  const std::shared_ptr<kvl::Environment> environment = std::make_shared<kvl::Environment>();
  std::shared_ptr<KVLSession> second;
  std::shared_ptr<KVLNotarySignature> before;
};

TEST_F(SharedNotaryTest, BothRenewAtOnceAndHaveTheirIdentities) {
  const auto beforeOfSecond = second->signature();
  EXPECT_NE(beforeOfSecond, session->signature());
  beginRenewal();
  second->enqueueNotarisation();
  ASSERT_NO_FATAL_FAILURE(finishRenewal());
  ASSERT_TRUE(waitUntil([&] { return second->signature() != beforeOfSecond; }));
  expectIdentity(*second);
  std::swap(session, second);
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(SharedNotaryTest, OneGoesWhileTheOtherRenews) {
  beginRenewal();
  expectToGo(letGoOfTheSecond());
  ASSERT_NO_FATAL_FAILURE(finishRenewal());
  // With the key that both had.
  beginRenewal();
  ASSERT_NO_FATAL_FAILURE(finishRenewal());
}

TEST_F(SharedNotaryTest, OneGoesInTheMiddleOfItsOwnRenewal) {
  beginRenewal();
  second->enqueueNotarisation();
  const auto watch = letGoOfTheSecond();
  EXPECT_FALSE(watch.expired()) << "its request holds it";
  ASSERT_NO_FATAL_FAILURE(finishRenewal());
  expectToGo(watch);
  beginRenewal();
  ASSERT_NO_FATAL_FAILURE(finishRenewal());
}

// While the answers come, whichever is first.
TEST_F(SharedNotaryTest, OneGoesOnAnotherThreadWhileBothAreAnswered) {
  for (int round = 0; round < 5; ++round) {
    beginRenewal();
    auto third = KVLSession::sessionWithNotary(session->notary(), {}, environment);
    const std::weak_ptr<KVLSession> watch = third;
    process.signal(SIGCONT);
    const std::jthread other([held = std::move(third)]() mutable { held.reset(); });
    ASSERT_NO_FATAL_FAILURE(finishRenewal());
    expectToGo(watch);
  }
}

}  // namespace
