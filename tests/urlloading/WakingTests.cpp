// When the I/O thread wakes.
#include "tests/support/HTTP2Peer.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <thread>

namespace kvl::testing {
namespace {

class WakingTest : public URLSessionTest {
 protected:
  // Until it has slept on for a while.
  static void waitForRest() {
    EXPECT_TRUE(kvltest::waitUntil([] {
      const long before = sleepsOf(inputThreads());
      EXPECT_FALSE(Semaphore().waitFor(std::chrono::milliseconds(100)));
      return sleepsOf(inputThreads()) == before;
    }));
  }
};

// The next request comes while the thread is about to wait after the last one.
TEST_F(WakingTest, NoRequestIsOverlookedByAThreadThatGoesToSleep) {
  constexpr int kRequests = 1000;
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  const URLRequest request(peer.url("127.0.0.1"));
  for (int i = 0; i < kRequests; ++i) ASSERT_EQ(load(*session, request).text(), "hello");
}

TEST_F(WakingTest, NoCommandOfManyThreadsIsOverlooked) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  const TestTLSServer silent({}, [](TestPeer& peer) {
    while (!peer.readRequest().empty()) {
    }
  });
  const URLRequest request(silent.url("127.0.0.1"));
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        OutcomeBox box;
        const auto task = session->dataTask(request, box.handler());
        task->resume();
        task->cancel();
        EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
      }
    });
  }
}

TEST_F(WakingTest, AnEventOnAConnectionThatNobodySharesWakesTheThreadOnce) {
  constexpr int kEvents = 20;
  ASSERT_TRUE(kvltest::waitUntil([] { return inputThreads().empty(); }));
  Semaphore due;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer speaker(connection);
    const auto stream = speaker.nextRequest();
    if (!stream) return;
    speaker.sendHead(*stream);
    for (int i = 0; i <= kEvents; ++i) {
      speaker.sendData(*stream, "x");
      due.wait();
    }
  });
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")));
  task->resume();
  delegate->waitForBytes(1);
  waitForRest();
  const long before = sleepsOf(inputThreads());
  for (int i = 0; i < kEvents; ++i) {
    due.signal();
    delegate->waitForBytes(static_cast<std::size_t>(i) + 2);
    // The time in which it would wake again.
    EXPECT_FALSE(Semaphore().waitFor(std::chrono::milliseconds(15)));
  }
  EXPECT_LT(sleepsOf(inputThreads()) - before, 2 * kEvents);
  due.signal();
  task->cancel();
}

}  // namespace
}  // namespace kvl::testing
