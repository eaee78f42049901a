// What becomes of a notary's keys when sessions that use it end.
#include "platform/security/Operations.h"
#include "tests/notary/NotaryFixture.h"
#include "tests/support/DrivenQueue.h"
#include "tests/support/FakeURLSession.h"
#include "tests/support/ForwardingKeyStore.h"

#include <local/KVLSession.h>
#include <local/platform/Semaphore.h>

#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

// A store in memory that fails when it is told to.
class FickleStore final : public ForwardingKeyStore {
 public:
  [[nodiscard]] kvl::Status remove(std::string_view tag, KeyClass keyClass,
                                   Deadline deadline) override {
    return failure ? *failure : ForwardingKeyStore::remove(tag, keyClass, deadline);
  }
  std::optional<kvl::Status> failure;
};

// Tells of the end of a session.
struct AwaitedEnd {
  int calls = 0;
  std::optional<kvl::Error> error;
  kvl::Semaphore told;

  [[nodiscard]] KVLSession::EndHandler handler() {
    return [this](const std::optional<kvl::Error>& keyError) {
      ++calls;
      error = keyError;
      told.signal();
    };
  }
};

class SessionKeysTest : public NotaryFixture {
 protected:
  ~SessionKeysTest() override {
    timers->dropPending();
    lookups->run();
  }

  [[nodiscard]] std::shared_ptr<const kvl::Environment> heldSurroundings() const {
    auto made = std::make_shared<kvl::Environment>(*surroundings(store, lookups));
    made->concurrentQueue = [timers = timers](const std::string&) { return timers; };
    made->frameworkQueue = made->concurrentQueue;
    made->urlSession = [](auto&&...) { return std::make_shared<FakeURLSession>(); };
    return made;
  }
  [[nodiscard]] std::shared_ptr<KVLNotary> makeNotary() const {
    return std::make_shared<KVLNotary>(std::nullopt, heldSurroundings());
  }
  [[nodiscard]] std::shared_ptr<KVLSession> sessionWith(
      const std::shared_ptr<KVLNotary>& notary) const {
    return KVLSession::sessionWithNotary(notary, {}, heldSurroundings());
  }
  [[nodiscard]] bool areKeysStored() const {
    std::vector<kvl::KeyRef> keys;
    return kvl::security::SecItemCopyMatching(*store, KVLNotary::keyQuery(), keys) == kvl::kSuccess;
  }
  // Until nothing is left to do.
  void runLookups() const {
    while (lookups->waiting() > 0) lookups->run();
  }
  // As it is told of, with the keys in the store as they are by then.
  void endAll(const std::shared_ptr<KVLSession>& session) const {
    AwaitedEnd end;
    session->end(end.handler());
    runLookups();
    ASSERT_TRUE(end.told.waitFor(20s));
    EXPECT_EQ(end.error, std::nullopt);
  }

  const std::shared_ptr<FickleStore> store = std::make_shared<FickleStore>();
  const std::shared_ptr<HeldQueue> lookups = std::make_shared<HeldQueue>();
  const std::shared_ptr<DrivenQueue> timers = std::make_shared<DrivenQueue>();
};

TEST_F(SessionKeysTest, TheEndRemovesTheKeysOnTheLookupQueueAndThenTellsOfIt) {
  const auto notary = makeNotary();
  ASSERT_TRUE(notary->hasKeys() && areKeysStored());
  const auto session = sessionWith(notary);
  AwaitedEnd end;
  session->end(end.handler());
  EXPECT_TRUE(areKeysStored());
  EXPECT_EQ(session->state(), KVLSessionStateEnded);
  runLookups();
  ASSERT_TRUE(end.told.waitFor(20s));
  EXPECT_EQ(end.error, std::nullopt);
  EXPECT_FALSE(areKeysStored() || notary->hasKeys());
  EXPECT_EQ(notary->privateKey(), nullptr);
  EXPECT_EQ(notary->publicKey(), nullptr);
  EXPECT_EQ(notary->pemCertificateSigningRequest(), std::nullopt);
}

TEST_F(SessionKeysTest, TheLastOfTwoRemovesThem) {
  const auto notary = makeNotary();
  const auto first = sessionWith(notary);
  auto second = sessionWith(notary);
  auto third = sessionWith(notary);
  endAll(first);
  EXPECT_TRUE(areKeysStored() && notary->hasKeys());
  timers->dropPending();
  third.reset();  // which leaves them, too
  EXPECT_TRUE(areKeysStored());
  endAll(second);
  EXPECT_FALSE(areKeysStored());
}

TEST_F(SessionKeysTest, ANewSessionHasNewOnesMadeFirst) {
  const auto notary = makeNotary();
  endAll(sessionWith(notary));
  script.request = {};
  const auto connections = script.connections;
  const auto session = sessionWith(notary);
  EXPECT_EQ(script.connections, connections) << "it waits for its keys";
  runLookups();
  EXPECT_EQ(script.connections, connections + 1);
  EXPECT_TRUE(areKeysStored() && notary->hasKeys());
  EXPECT_EQ(script.request, (kvl::Dictionary{{"csr", *notary->pemCertificateSigningRequest()}}));
  endAll(session);
  EXPECT_FALSE(areKeysStored());
}

TEST_F(SessionKeysTest, ASessionThatComesWhileTheyAreRemovedGetsNewOnes) {
  const auto notary = makeNotary();
  const auto before = notary->pemCertificateSigningRequest();
  const auto first = sessionWith(notary);
  first->end();
  const auto connections = script.connections;
  const auto second = sessionWith(notary);
  EXPECT_EQ(script.connections, connections);
  runLookups();
  EXPECT_EQ(script.connections, connections + 1);
  EXPECT_TRUE(areKeysStored() && notary->hasKeys());
  EXPECT_NE(notary->pemCertificateSigningRequest(), before);
  endAll(second);
}

TEST_F(SessionKeysTest, WhileTheyAreMadeTheNotarisationEndsAndNoneAreLeft) {
  const auto notary = KVLNotary::notaryInBackground(std::nullopt, heldSurroundings());
  auto session = sessionWith(notary);
  script.holdsPosts = true;
  AwaitedEnd end;
  session->end(end.handler());
  EXPECT_EQ(script.held.size(), 1U) << "the notarisation ends on the reply thread";
  runLookups();
  ASSERT_TRUE(end.told.waitFor(20s));
  EXPECT_FALSE(areKeysStored() || notary->hasKeys());
  EXPECT_TRUE(session->awaitingSignature());
  const std::weak_ptr<KVLSession> watch = session;
  session.reset();
  EXPECT_FALSE(watch.expired());
  script.runHeld();
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(script.steps.empty()) << "nobody was asked";
}

TEST_F(SessionKeysTest, ADeletionThatFailsIsToldToTheHandler) {
  const auto notary = makeNotary();
  const auto session = sessionWith(notary);
  store->failure = -25308;
  AwaitedEnd end;
  session->end(end.handler());
  runLookups();
  ASSERT_TRUE(end.told.waitFor(20s));
  ASSERT_TRUE(end.error.has_value());
  EXPECT_TRUE(end.error->is(kvl::NSOSStatusErrorDomain, -25308));
  EXPECT_FALSE(notary->hasKeys());
  AwaitedEnd late;
  session->end(late.handler());
  ASSERT_TRUE(late.told.waitFor(20s));
  EXPECT_EQ(late.error, end.error);
  store->failure.reset();
}

TEST_F(SessionKeysTest, TheUseGoesWithTheNotary) {
  const auto former = makeNotary();
  const auto present = makeNotary();
  const auto session = sessionWith(former);
  session->setNotary(present);
  endAll(session);
  EXPECT_TRUE(former->hasKeys());
  EXPECT_FALSE(present->hasKeys());
  // Nobody uses the former one any more.
  endAll(sessionWith(former));
  EXPECT_FALSE(former->hasKeys());
}

TEST_F(SessionKeysTest, ANotaryThatGoesWithItsSessionLeavesNothing) {
  auto notary = makeNotary();
  auto session = sessionWith(notary);
  AwaitedEnd end;
  session->end(end.handler());
  timers->dropPending();
  session.reset();
  notary.reset();
  runLookups();
  ASSERT_TRUE(end.told.waitFor(20s));
  EXPECT_FALSE(areKeysStored());
}

// The keys are not taken from under a request that is just being made.
TEST_F(SessionKeysTest, WhileTheNotaryIsAskedTheyStay) {
  class EndingNotary final : public KVLNotary {
   public:
    using KVLNotary::KVLNotary;
    void notariseWithCompletionHandler(CompletionHandler handler) override {
      if (whenAsked) whenAsked();
      KVLNotary::notariseWithCompletionHandler(std::move(handler));
    }
    std::function<void()> whenAsked;
  };
  const auto notary = std::make_shared<EndingNotary>(std::nullopt, heldSurroundings());
  const auto session = sessionWith(notary);
  script.request = {};
  AwaitedEnd end;
  notary->whenAsked = [&] {
    session->end(end.handler());
    session->end();
    EXPECT_EQ(lookups->waiting(), 0U);
  };
  session->enqueueNotarisation();
  EXPECT_EQ(lookups->waiting(), 1U);
  EXPECT_NE(script.request["csr"].string(), std::nullopt);
  runLookups();
  ASSERT_TRUE(end.told.waitFor(20s));
  EXPECT_FALSE(areKeysStored() || notary->hasKeys());
}

}  // namespace
