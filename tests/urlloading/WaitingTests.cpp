// Requests that wait for others with the same host, and their time-outs.
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <chrono>
#include <memory>
#include <string>

namespace kvl::testing {
namespace {

using std::chrono::milliseconds;

class WaitingTest : public URLSessionTest {
 protected:
  // The first request takes the only connection.
  WaitingTest() {
    URLSessionConfiguration configuration = anyPeers();
    configuration.maximumConnectionsPerHost = 1;
    configuration.allowsHTTP2 = false;
    session = URLSession::create(configuration, delegate);
    first_ = session->dataTask(URLRequest(silent_.url("127.0.0.1")), held_.handler());
    first_->resume();
    isTaken_.wait();
  }
  ~WaitingTest() override {
    first_->cancel();
    EXPECT_EQ(held_.wait().code(), NSURLErrorCancelled);
  }
  [[nodiscard]] URLRequest next() const { return URLRequest(silent_.url("127.0.0.1")); }

 private:
  Semaphore isTaken_;
  const TestTLSServer silent_{{}, [this](TestPeer& peer) {
                                static_cast<void>(peer.readRequest());
                                isTaken_.signal();
                                static_cast<void>(peer.readRequest());
                              }};
  OutcomeBox held_;
  std::shared_ptr<DataTask> first_;
};

TEST_F(WaitingTest, TheTotalTimeEndsAWaitingRequestAndNoOther) {
  OutcomeBox unlimited;
  const auto other = session->dataTask(next(), unlimited.handler());
  other->resume();
  URLRequest limited = next();
  limited.setTotalTimeout(milliseconds(200));
  EXPECT_EQ(load(*session, limited).code(), NSURLErrorTimedOut);
  EXPECT_EQ(other->state(), DataTask::State::running);
  other->cancel();
  EXPECT_EQ(unlimited.wait().code(), NSURLErrorCancelled);
}

TEST_F(WaitingTest, TheEarliestOfManyEndsFirst) {
  OutcomeBox later;
  URLRequest patient = next();
  patient.setTotalTimeout(milliseconds(600));
  const auto task = session->dataTask(patient, later.handler());
  task->resume();
  URLRequest hasty = next();
  hasty.setTotalTimeout(milliseconds(100));
  EXPECT_EQ(load(*session, hasty).code(), NSURLErrorTimedOut);
  EXPECT_EQ(task->state(), DataTask::State::running);
  EXPECT_EQ(later.wait().code(), NSURLErrorTimedOut);
}

TEST_F(WaitingTest, TimeThatPassesInTheLineIsNoSilence) {
  URLRequest request = next();
  request.setTimeoutInterval(milliseconds(50));
  request.setTotalTimeout(milliseconds(400));
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - began, milliseconds(400));
}

// Whoever waits for the first exchange to reach the host counts the time.
TEST_F(URLSessionTest, AHostThatNobodyReachesTimesOutForThoseInTheLineToo) {
  Semaphore isOver;
  const TestTLSServer peer({}, [&](TestPeer&) { isOver.wait(); });
  const URLRequest first("https://127.0.0.1:" + std::to_string(peer.port()) + "/");
  OutcomeBox connecting;
  const auto task = session->dataTask(first, connecting.handler());
  task->resume();
  URLRequest waiting = first;
  waiting.setTimeoutInterval(milliseconds(200));
  EXPECT_EQ(load(*session, waiting).code(), NSURLErrorTimedOut);
  EXPECT_EQ(task->state(), DataTask::State::running);
  task->cancel();
  EXPECT_EQ(connecting.wait().code(), NSURLErrorCancelled);
  isOver.signal();
}

}  // namespace
}  // namespace kvl::testing
