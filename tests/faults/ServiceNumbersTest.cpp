// Requests by the hundred to a service that fails at random: an answer is its own request's, or
// there is none.
#include "tests/faults/NumberedScene.h"

#include <atomic>
#include <cstdlib>
#include <random>

namespace {

using namespace kvltest;
using kvl::testing::httpResponse;
using kvl::testing::TestPeer;

class ServiceNumbers : public NumberedScene {};

// Answers well or in one of several bad ways, as the dice fall. False when the connection ends.
bool answerOddly(TestPeer& peer, const std::string& target, std::uint64_t dice) {
  const auto answer = httpResponse("{\"target\":\"" + target + "\"}");
  const auto stale = httpResponse("{\"target\":\"/echo?number=0\"}");
  const auto body = answer.find("\r\n\r\n") + 4;
  switch (dice % 7) {
    case 0:
      peer.reset();
      return false;
    case 1:
      peer.write(answer.substr(0, answer.size() / 2));
      peer.reset();
      return false;
    case 2:
      peer.write(answer.substr(0, answer.size() - 3));
      peer.closeWithoutNotice();
      return false;
    case 3:  // one answer more than there was a request
      return peer.write(answer + stale);
    case 4:  // the same, with the head apart from the bodies
      return peer.write(answer.substr(0, body)) && peer.write(answer.substr(body) + stale);
    default:
      return peer.write(answer);
  }
}

TEST_F(ServiceNumbers, NoRequestIsAnsweredWithAnotherOnesBytes) {
  beginNumbered();
  beginFault();
  std::atomic<std::uint64_t> served = 0;
  service.serveEach([&served](TestPeer& peer, const std::string& target) {
    std::mt19937_64 random(++served);
    return answerOddly(peer, target, random());
  });
  std::size_t answered = 0;
  std::size_t lost = 0;
  for (int round = 0; round < 2; ++round) {
    for (const auto& reply : askMany(100)) {  // which looks at the numbers
      if (!reply.error) {
        ++answered;
        continue;
      }
      ++lost;
      EXPECT_TRUE(reply.failedWith(kvl::NSURLErrorNetworkConnectionLost))
          << reply.error->description();
    }
  }
  EXPECT_EQ(answered + lost, 200U);
  EXPECT_GT(answered, 50U);
  EXPECT_GT(lost, 25U);
  endFault();
  service.serve(nullptr);
  // As many connections as have survived stay open for the next requests, until a new identity.
  renew();
  recover();
  EXPECT_EQ(statesSeen(), "established");
  report("service", "fails at random, 200 requests");
}

}  // namespace
