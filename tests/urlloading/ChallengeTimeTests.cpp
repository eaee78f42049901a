// The time that a challenge takes is nobody's silence.
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <chrono>
#include <thread>

namespace kvl::testing {
namespace {

constexpr std::chrono::milliseconds kIdleTimeOut{2500};
constexpr std::chrono::milliseconds kLongChallenge{2700};

class ChallengeTimeTest : public URLSessionTest {};

// Takes longer for the second connection's trust than the first request may be idle.
class SlowJudge final : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& session, const Challenge& challenge,
                           ChallengeHandler completionHandler) override {
    if (trustChallenges() == 1) std::this_thread::sleep_for(kLongChallenge);
    RecordingDelegate::didReceiveChallenge(session, challenge, std::move(completionHandler));
  }
};

TEST_F(ChallengeTimeTest, AnotherRequestsChallengeDoesNotCountInATimeOut) {
  Semaphore isAsked;
  Semaphore mayAnswer;
  const TestTLSServer waiting{{.identity = &server()}, [&](TestPeer& peer) {
                                static_cast<void>(peer.readRequest());
                                isAsked.signal();
                                mayAnswer.wait();
                                peer.write(httpResponse("late"));
                              }};
  const TestTLSServer other{{.identity = &server()}, answering(httpResponse("other"))};
  const auto judge = std::make_shared<SlowJudge>();
  judge->anchor = delegate->anchor;
  const auto loading = URLSession::create(anyPeers(), judge);
  URLRequest request(waiting.url("127.0.0.1"));
  request.setTimeoutInterval(kIdleTimeOut);
  OutcomeBox first;
  loading->dataTask(request, first.handler())->resume();
  isAsked.wait();
  EXPECT_EQ(load(*loading, URLRequest(other.url("127.0.0.1"))).text(), "other");
  mayAnswer.signal();
  EXPECT_EQ(first.wait().text(), "late");
}

}  // namespace
}  // namespace kvl::testing
