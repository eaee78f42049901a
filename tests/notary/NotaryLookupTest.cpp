// The search for the identity of a reply's certificate, apart from the reply thread.
#include "tests/notary/NotaryFixture.h"

#include <thread>

namespace kvltest {
namespace {

using kvl::Dictionary;

// Notes on which thread it goes.
class DestructionRecorder {
 public:
  explicit DestructionRecorder(std::optional<std::thread::id>& thread) : thread_(thread) {}
  ~DestructionRecorder() { thread_ = std::this_thread::get_id(); }
  DestructionRecorder(const DestructionRecorder&) = delete;
  DestructionRecorder& operator=(const DestructionRecorder&) = delete;

 private:
  std::optional<std::thread::id>& thread_;
};

class NotaryLookupTest : public NotaryFixture {
 protected:
  // The blocks that the lookup thread has run and not let go of yet.
  std::vector<kvl::DispatchQueue::Block> runLookupsOnTheirThread() {
    std::vector<kvl::DispatchQueue::Block> blocks;
    std::thread([&] { blocks = lookups->run(); }).join();
    return blocks;
  }

  const std::shared_ptr<HeldQueue> lookups = std::make_shared<HeldQueue>();
  const std::shared_ptr<const kvl::Environment> heldEnvironment =
      surroundings(kvl::security::makeMemoryKeyStore(), lookups);
};

TEST_F(NotaryLookupTest, QueueIsAskedForWhenThereIsSomethingToLookFor) {
  KVLNotary fresh(std::nullopt, heldEnvironment);
  script.reply = Dictionary{{"url", kURLs}};
  notarise(fresh);
  EXPECT_EQ(lookupQueueRequests, 0);
  script.reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(fresh)}};
  fresh.notariseWithCompletionHandler([](auto&&...) {});
  EXPECT_EQ(lookupQueueRequests, 1);
  lookups->run();
}

TEST_F(NotaryLookupTest, LookupOfAnIdentityHoldsUpNoOtherReply) {
  KVLNotary fresh(std::nullopt, heldEnvironment);
  script.reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(fresh)}};
  std::shared_ptr<KVLNotarySignature> signature;
  fresh.notariseWithCompletionHandler(
      [&](std::shared_ptr<KVLNotarySignature> made, auto&&) { signature = std::move(made); });
  EXPECT_EQ(lookups->waiting(), 1U);
  EXPECT_EQ(signature, nullptr);
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate"}));
  script.reply = Dictionary{{"url", kURLs}};
  EXPECT_NE(notarise(fresh).signature, nullptr);
  lookups->run();
  ASSERT_NE(signature, nullptr);
  EXPECT_NE(signature->identity(), nullptr);
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate", "activate", "suspend", "invalidate",
                                                    "suspend", "invalidate"}));
}

TEST_F(NotaryLookupTest, HandlerRunsOnTheReplyThread) {
  KVLNotary fresh(std::nullopt, heldEnvironment);
  script.holdsPosts = true;
  script.reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(fresh)}};
  std::vector<std::thread::id> threads;
  fresh.notariseWithCompletionHandler(
      [&](auto&&...) { threads.push_back(std::this_thread::get_id()); });
  runLookupsOnTheirThread();
  EXPECT_TRUE(threads.empty());
  EXPECT_EQ(script.held.size(), 1U);
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate"}));
  script.runHeld();
  EXPECT_EQ(threads, std::vector{std::this_thread::get_id()});
  EXPECT_EQ(script.steps, (std::vector<std::string>{"activate", "suspend", "invalidate"}));
}

TEST_F(NotaryLookupTest, LookupThreadKeepsNothingOnceTheHandlerHasRun) {
  KVLNotary fresh(std::nullopt, heldEnvironment);
  script.holdsPosts = true;
  script.reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(fresh)}};
  std::optional<std::thread::id> destroyedOn;
  std::weak_ptr<KVLNotarySignature> signature;
  fresh.notariseWithCompletionHandler(
      [&signature, recorder = std::make_shared<DestructionRecorder>(destroyedOn)](
          std::shared_ptr<KVLNotarySignature> made, auto&&) { signature = made; });
  const auto stillHeld = runLookupsOnTheirThread();
  EXPECT_EQ(stillHeld.size(), 1U);
  EXPECT_FALSE(destroyedOn);
  EXPECT_FALSE(lastConnection.expired());
  script.runHeld();
  EXPECT_EQ(destroyedOn, std::this_thread::get_id());
  EXPECT_TRUE(lastConnection.expired());
  EXPECT_TRUE(signature.expired());
}

TEST_F(NotaryLookupTest, HandlerOfAReplyWithoutALookupGoesAfterItHasRun) {
  script.reply = Dictionary{{"url", kURLs}};
  std::optional<std::thread::id> destroyedOn;
  shared()->notariseWithCompletionHandler(
      [&destroyedOn, recorder = std::make_shared<DestructionRecorder>(destroyedOn)](auto&&...) {
        EXPECT_FALSE(destroyedOn);
      });
  EXPECT_EQ(destroyedOn, std::this_thread::get_id());
  EXPECT_TRUE(lastConnection.expired());
}

TEST_F(NotaryLookupTest, NotaryMayBeDestroyedWhileItsLookupWaits) {
  auto notary = std::make_shared<KVLNotary>(std::nullopt, heldEnvironment);
  script.holdsPosts = true;
  script.reply = Dictionary{{"url", kURLs}, {"certificate", certificateFor(*notary)}};
  Outcome outcome;
  notary->notariseWithCompletionHandler([&](std::shared_ptr<KVLNotarySignature> signature, auto&&) {
    ++outcome.calls;
    outcome.signature = std::move(signature);
  });
  notary.reset();
  runLookupsOnTheirThread();
  EXPECT_EQ(outcome.calls, 0);
  script.runHeld();
  EXPECT_EQ(outcome.calls, 1);
  ASSERT_NE(outcome.signature, nullptr);
  EXPECT_NE(outcome.signature->client(), nullptr);
  EXPECT_EQ(outcome.signature->identity(), nullptr);  // its key went with the notary
  EXPECT_TRUE(lastConnection.expired());
}

}  // namespace
}  // namespace kvltest
