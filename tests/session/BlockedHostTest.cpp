// Hosts that block what they were given cost nobody else anything.
#include "tests/session/SessionFixture.h"
#include "tests/support/BlockedBlocks.h"
#include "tests/support/WaitUntil.h"

namespace {

using namespace kvltest;

class BlockedHostSessionTest : public SessionFixture {
 protected:
  // With the process's own queues.
  void createOnRealQueues() {
    const auto environment = std::make_shared<kvl::Environment>();
    environment->limits.defaultDelay = std::chrono::seconds(0);
    environment->urlSession = [](auto&&...) { return std::make_shared<FakeURLSession>(); };
    session = KVLSession::sessionWithNotary(notary, recorder, environment);
  }

  BlockedBlocks blocked;
};

TEST_F(BlockedHostSessionTest, RenewalsNeedNoneOfTheHostsThreads) {
  constexpr int kAllThreads = 512;
  createOnRealQueues();
  blocked.post([&](auto block) { session->queue()->async(std::move(block)); }, kAllThreads);
  ASSERT_TRUE(blocked.allHaveBegun());
  notary->answer(nullptr, finalError());
  EXPECT_TRUE(waitUntil([&] { return notary->calls() == 2; }));
}

TEST_F(BlockedHostSessionTest, AQueueOfTheHostsIsUsedAsGiven) {
  createOnRealQueues();
  session->setQueue(queue);
  notary->answer(nullptr, finalError());
  EXPECT_EQ(queue->takeDelays(), std::vector<double>{0});
  EXPECT_EQ(notary->calls(), 1U);
  queue->runDue();
  EXPECT_EQ(notary->calls(), 2U);
}

}  // namespace
