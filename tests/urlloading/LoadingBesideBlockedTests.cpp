// A delegate that blocks costs its own session object's deliveries, and nothing else.
#include "platform/urlloading/FrameworkSession.h"
#include "tests/support/BlockedBlocks.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/DispatchQueue.h>
#include <local/platform/Semaphore.h>

namespace kvl::testing {
namespace {

using kvltest::BlockedBlocks;

constexpr std::chrono::seconds kLongest{60};

class BlockedDelegateTest : public URLSessionTest {
 protected:
  const TestTLSServer streaming{{.identity = &server()}, [](TestPeer& peer) {
                                  static_cast<void>(peer.readRequest());
                                  peer.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
                                  static_cast<void>(peer.readRequest());
                                }};
  const TestTLSServer other{{.identity = &server(), .clientAuthority = &root()},
                            [this](TestPeer& peer) {
                              while (!peer.readRequest().empty()) {
                                reached.signal();
                                if (!peer.write(httpResponse("hello"))) return;
                              }
                            }};
  Semaphore reached;
};

TEST_F(BlockedDelegateTest, ChallengesOfTheFrameworksOwnSessionsGoOn) {
  Semaphore gate;
  Semaphore blocked;
  delegate->onData = [&](const auto&) {
    blocked.signal();
    gate.wait();
  };
  const auto own = urlloading::createForFramework(URLSessionConfiguration::ephemeral(), delegate);
  own->dataTask(URLRequest(streaming.url("127.0.0.1")))->resume();
  ASSERT_TRUE(blocked.waitFor(kLongest));
  OutcomeBox box;
  own->dataTask(URLRequest(other.url("127.0.0.1")), box.handler())->resume();
  EXPECT_TRUE(reached.waitFor(kLongest));
  gate.signal();
  EXPECT_EQ(box.wait().text(), "hello");
  own->invalidateAndCancel();
}

TEST_F(BlockedDelegateTest, OtherSessionObjectsGoOnBesideManyBlockedOnes) {
  constexpr int kSessions = 40;
  Semaphore gate;
  Semaphore blocked;
  Semaphore ended;
  const auto blocking = makeDelegate();
  blocking->onCompletion = [&] {
    blocked.signal();
    gate.wait();
    ended.signal();
  };
  std::vector<std::shared_ptr<URLSession>> sessions;
  for (int i = 0; i < kSessions; ++i) {
    sessions.push_back(URLSession::create({}, blocking));
    sessions.back()->dataTask(URLRequest("https://127.0.0.1:1/"))->resume();
  }
  for (int i = 0; i < kSessions; ++i) ASSERT_TRUE(blocked.waitFor(kLongest));
  EXPECT_EQ(load(*session, URLRequest(other.url("127.0.0.1"))).text(), "hello");
  for (int i = 0; i < kSessions; ++i) gate.signal();
  // Who waits for a semaphore uses it until the wait has returned.
  for (int i = 0; i < kSessions; ++i) ASSERT_TRUE(ended.waitFor(kLongest));
}

TEST_F(BlockedDelegateTest, ManyQueuesMayWaitForLoadsAtOnce) {
  constexpr int kQueues = 64;
  Semaphore done;
  for (int i = 0; i < kQueues; ++i) {
    DispatchQueue::serial("host")->async([&] {
      const Outcome outcome = load(*session, URLRequest(other.url("127.0.0.1")));
      EXPECT_EQ(outcome.text(), "hello") << outcome.code();
      done.signal();
    });
  }
  for (int i = 0; i < kQueues; ++i) ASSERT_TRUE(done.waitFor(kLongest));
}

}  // namespace
}  // namespace kvl::testing
