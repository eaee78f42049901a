// A request that an HTTP/2 server has declined goes out again, one that it may have taken does not.
#include "tests/support/HTTP2Peer.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kvl::testing {
namespace {

constexpr std::uint32_t kRefusedStream = 7;
constexpr std::size_t kBodySize = 50000;

class DeclinedRequestTest : public URLSessionTest {
 protected:
  // A server whose connections are counted from 1.
  using Handler = std::function<void(HTTP2Peer&, int connection)>;
  [[nodiscard]] static TestServerOptions options() {
    return {.identity = &server(), .protocol = "h2"};
  }
  [[nodiscard]] static TestTLSServer::Handler numbered(Handler handler) {
    return [handler = std::move(handler),
            count = std::make_shared<std::atomic<int>>(0)](TestPeer& connection) {
      HTTP2Peer peer(connection);
      handler(peer, ++*count);
    };
  }
  [[nodiscard]] static URLRequest requestTo(const TestTLSServer& server) {
    return URLRequest(server.url("127.0.0.1"));
  }
};

void drain(HTTP2Peer& peer) {
  while (peer.next()) {
  }
}

// Answers until the client leaves.
void answerAll(HTTP2Peer& peer) {
  for (auto stream = peer.nextRequest(); stream; stream = peer.nextRequest())
    peer.sendHead(*stream, true);
}

TEST_F(DeclinedRequestTest, BeyondTheLastStreamGoesOutAgain) {
  std::atomic<bool> isRepeated = false;
  const TestTLSServer server(options(), numbered([&](HTTP2Peer& peer, int connection) {
                               const auto first = peer.nextRequest();
                               if (!first) return;
                               if (connection > 1) {
                                 isRepeated = true;
                                 peer.sendHead(*first, true);
                               } else if (peer.nextRequest()) {
                                 peer.sendGoAway(*first);
                                 // The connection lives on, with the first one under way.
                                 EXPECT_TRUE(kvltest::waitUntil([&] { return isRepeated.load(); }));
                                 peer.sendHead(*first, true);
                               }
                               drain(peer);
                             }));
  OutcomeBox first;
  OutcomeBox second;
  session->dataTask(requestTo(server), first.handler())->resume();
  session->dataTask(requestTo(server), second.handler())->resume();
  EXPECT_FALSE(second.wait().error);
  EXPECT_FALSE(first.wait().error);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(DeclinedRequestTest, OnAConnectionThatWasUsedGoesOutAgain) {
  const TestTLSServer server(options(), numbered([](HTTP2Peer& peer, int connection) {
                               if (connection > 1) return answerAll(peer);
                               const auto first = peer.nextRequest();
                               if (!first) return;
                               peer.sendHead(*first, true);
                               if (!peer.nextRequest()) return;
                               peer.sendGoAway(*first);
                               drain(peer);
                             }));
  EXPECT_FALSE(load(*session, requestTo(server)).error);
  EXPECT_FALSE(load(*session, requestTo(server)).error);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(DeclinedRequestTest, ARefusedStreamGoesOutAgain) {
  const TestTLSServer server(options(), numbered([](HTTP2Peer& peer, int connection) {
                               if (connection > 1) return answerAll(peer);
                               if (const auto stream = peer.nextRequest())
                                 peer.sendReset(*stream, kRefusedStream);
                               drain(peer);
                             }));
  EXPECT_FALSE(load(*session, requestTo(server)).error);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(DeclinedRequestTest, IsToldAsARepetitionWithoutAStatus) {
  using Kind = TraceRecord::Kind;
  const TestTLSServer server(options(), numbered([](HTTP2Peer& peer, int connection) {
                               if (connection > 2) return answerAll(peer);
                               if (const auto stream = peer.nextRequest())
                                 peer.sendReset(*stream, kRefusedStream);
                               drain(peer);
                             }));
  const kvltest::TraceCapture trace{session->dataTask(requestTo(server))->taskIdentifier()};
  EXPECT_FALSE(load(*session, URLRequest(server.url("127.0.0.1", "/path"))).error);
  EXPECT_EQ(trace.kinds(), (std::vector{Kind::requestBegan, Kind::connected, Kind::requestRepeated,
                                        Kind::connected, Kind::requestRepeated, Kind::connected,
                                        Kind::answered, Kind::requestEnded}));
  std::int64_t count = 0;
  for (const auto& repeated : trace.of(Kind::requestRepeated)) {
    EXPECT_EQ(repeated.record.status, 0);
    EXPECT_EQ(repeated.record.count, ++count);
    EXPECT_EQ(repeated.path, "/path");
  }
}

TEST_F(DeclinedRequestTest, TheBodyIsWholeTheSecondTime) {
  std::string body;
  std::atomic<bool> isWhole = false;
  const TestTLSServer server(options(), numbered([&](HTTP2Peer& peer, int connection) {
                               for (auto frame = peer.next(); frame; frame = peer.next()) {
                                 if (frame->type != HTTP2Frame::data) continue;
                                 if (connection == 1) {
                                   peer.sendGoAway(0);
                                   return drain(peer);
                                 }
                                 body += frame->payload;
                                 if ((frame->flags & HTTP2Frame::kEndStream) == 0) continue;
                                 isWhole = true;
                                 peer.sendHead(frame->stream, true);
                               }
                             }));
  URLRequest request = requestTo(server);
  request.setMethod("POST");
  const std::string sent = std::string(kBodySize, 'x') + "end";
  request.setBody(Data::fromText(sent));
  const Outcome outcome = load(*session, request);
  ASSERT_FALSE(outcome.error) << outcome.error->description();
  ASSERT_TRUE(isWhole);
  EXPECT_EQ(body, sent);
}

TEST_F(DeclinedRequestTest, AServerThatDeclinesForEverIsGivenUp) {
  constexpr int kAttempts = 4;
  const TestTLSServer server(options(), numbered([](HTTP2Peer& peer, int) {
                               if (peer.nextRequest()) peer.sendGoAway(0);
                               drain(peer);
                             }));
  EXPECT_EQ(load(*session, requestTo(server)).code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(server.connections(), kAttempts);
}

TEST_F(DeclinedRequestTest, UpToTheLastStreamIsLostWithItsConnection) {
  std::atomic<int> arrivals = 0;
  const TestTLSServer server(options(), numbered([&](HTTP2Peer& peer, int) {
                               const auto first = peer.nextRequest();
                               if (!first) return;
                               peer.sendHead(*first, true);
                               const auto second = peer.nextRequest();
                               if (!second) return;
                               ++arrivals;
                               peer.sendGoAway(*second);
                             }));
  EXPECT_FALSE(load(*session, requestTo(server)).error);
  EXPECT_EQ(load(*session, requestTo(server)).code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(arrivals, 1);
  EXPECT_EQ(server.connections(), 1);
}

// libcurl would send it again.
TEST_F(DeclinedRequestTest, WithAnAnswerThatCannotBeReadIsLost) {
  std::atomic<int> arrivals = 0;
  const TestTLSServer server(
      options(), numbered([&](HTTP2Peer& peer, int) {
        const auto first = peer.nextRequest();
        if (!first) return;
        peer.sendHead(*first, true);
        const auto second = peer.nextRequest();
        if (!second) return;
        ++arrivals;
        peer.send({HTTP2Frame::headers, HTTP2Frame::kEndHeaders | HTTP2Frame::kEndStream, *second,
                   std::string(6, '\xff')});
        drain(peer);
      }));
  EXPECT_FALSE(load(*session, requestTo(server)).error);
  EXPECT_EQ(load(*session, requestTo(server)).code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(arrivals, 1);
  EXPECT_EQ(server.connections(), 1);
}

}  // namespace
}  // namespace kvl::testing
