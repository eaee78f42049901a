// What the server sees of exchanges that end before their time.
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <algorithm>
#include <chrono>
#include <future>

namespace kvl::testing {
namespace {

constexpr std::chrono::seconds kLongestWait{30};
constexpr std::string_view kEvent = "data: b\n\n";

template <class T>
bool isReady(const std::future<T>& future) {
  return future.wait_for(kLongestWait) == std::future_status::ready;
}

// Opens an event stream, which is idle from then on, and takes one more request, to which
// `beginning` is all of the answer. Then waits for a reset, and goes on with the stream.
class ResettingServer {
 public:
  explicit ResettingServer(const TestIdentity& identity, std::string beginning = {})
      : beginning_(std::move(beginning)),
        server_({.identity = &identity, .protocol = "h2"},
                [this](TestPeer& peer) { serve(peer); }) {}

  [[nodiscard]] URLRequest request() const { return URLRequest(server_.url("127.0.0.1")); }
  [[nodiscard]] int connections() const { return server_.connections(); }

  std::promise<void> requested;
  // The streams that were requested second and that were reset.
  std::promise<std::pair<std::uint32_t, std::uint32_t>> reset;

 private:
  void serve(TestPeer& connection) {
    HTTP2Peer peer(connection);
    const auto stream = peer.nextRequest();
    if (!stream) return;
    peer.sendHead(*stream);
    peer.sendData(*stream, kEvent);
    const auto second = peer.nextRequest();
    if (!second) return;
    requested.set_value();
    if (!beginning_.empty()) {
      peer.sendHead(*second);
      peer.sendData(*second, beginning_);
    }
    const auto frame = peer.nextOf(HTTP2Frame::reset);
    if (!frame) return;
    reset.set_value({*second, frame->stream});
    peer.sendData(*stream, kEvent, true);
    static_cast<void>(peer.next());
  }

  const std::string beginning_;
  TestTLSServer server_;
};

class ResetTest : public URLSessionTest {
 protected:
  // The stream that `peer` opens first.
  void openStream(const ResettingServer& peer) const {
    session->dataTask(peer.request())->resume();
    delegate->waitForBytes(kEvent.size());
  }
  void expectReset(ResettingServer& peer) const {
    auto reset = peer.reset.get_future();
    ASSERT_TRUE(isReady(reset)) << "the server was not told";
    const auto [requested, told] = reset.get();
    EXPECT_EQ(requested, told);
    // The connection stays, and the stream with it.
    delegate->waitForBytes(2 * kEvent.size());
    EXPECT_EQ(peer.connections(), 1);
  }
};

TEST_F(ResetTest, CancellingReachesTheServerBesideAnIdleStream) {
  ResettingServer peer(server());
  openStream(peer);
  OutcomeBox box;
  const auto task = session->dataTask(peer.request(), box.handler());
  task->resume();
  ASSERT_TRUE(isReady(peer.requested.get_future()));
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  expectReset(peer);
}

TEST_F(ResetTest, ATimeOutReachesTheServerBesideAnIdleStream) {
  ResettingServer peer(server());
  openStream(peer);
  URLRequest request = peer.request();
  request.setTimeoutInterval(std::chrono::milliseconds(300));
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
  expectReset(peer);
}

TEST_F(ResetTest, AnAnswerThatIsTooLargeIsResetBesideAnIdleStream) {
  ResettingServer peer(server(), std::string(2000, 'x'));
  URLSessionConfiguration configuration;
  configuration.maximumBodySize = 1000;
  session = URLSession::create(configuration, delegate);
  openStream(peer);
  EXPECT_EQ(load(*session, peer.request()).code(), NSURLErrorDataLengthExceedsMaximum);
  expectReset(peer);
}

// The stream's sender is held back, so that libcurl does not look at the stream by itself.
TEST_F(ResetTest, CancellingBesideAStreamThatIsHeldBackLosesNothingOfIt) {
  const std::string chunk(16000, 'x');
  constexpr int kChunks = 20;
  std::promise<void> requested;
  std::promise<void> release;
  std::promise<std::uint32_t> reset;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer client(connection);
    const auto stream = client.nextRequest();
    if (!stream) return;
    client.sendHead(*stream);
    for (int i = 0; i < kChunks; ++i) client.sendData(*stream, chunk);
    if (!client.nextRequest()) return;
    requested.set_value();
    const auto frame = client.nextOf(HTTP2Frame::reset);
    reset.set_value(frame ? frame->stream : 0);
    client.sendData(*stream, "end", true);
    static_cast<void>(client.next());
  });
  URLSessionConfiguration configuration;
  configuration.deliveryBufferSize = 1000;
  session = URLSession::create(configuration, delegate);
  const auto go = release.get_future().share();
  delegate->onData = [go](const auto&) { go.wait(); };
  const URLRequest request(peer.url("127.0.0.1"));
  session->dataTask(request)->resume();
  delegate->waitForBytes(1);
  OutcomeBox box;
  const auto task = session->dataTask(request, box.handler());
  task->resume();
  const bool arrived = isReady(requested.get_future());
  task->cancel();
  auto told = reset.get_future();
  const bool isTold = arrived && isReady(told);
  release.set_value();
  ASSERT_TRUE(isTold);
  EXPECT_EQ(told.get(), 3U);
  EXPECT_FALSE(delegate->waitForCompletion());
  EXPECT_EQ(delegate->text().size(), kChunks * chunk.size() + 3);
}

// That exchange was picked to have the reset sent, and must not be taken for one that is held back.
TEST_F(ResetTest, CancellingLeavesTheTimeOutOfTheExchangeBesideIt) {
  std::promise<void> requested;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer client(connection);
    if (!client.nextRequest() || !client.nextRequest()) return;
    requested.set_value();
    while (client.next()) {
    }
  });
  URLRequest request(peer.url("127.0.0.1"));
  OutcomeBox cancelled;
  OutcomeBox silent;
  request.setTimeoutInterval(std::chrono::seconds(2));
  session->dataTask(request, silent.handler())->resume();
  const auto task = session->dataTask(request, cancelled.handler());
  task->resume();
  ASSERT_TRUE(isReady(requested.get_future()));
  task->cancel();
  EXPECT_EQ(cancelled.wait().code(), NSURLErrorCancelled);
  EXPECT_EQ(silent.wait().code(), NSURLErrorTimedOut);
}

// Nobody else uses the connection: it may end, or tell of the reset, but not stay as if nothing
// had happened.
TEST_F(ResetTest, CancellingTheOnlyExchangeReachesTheServer) {
  for (const char* protocol : {"h2", "http/1.1"}) {
    std::promise<void> requested;
    std::promise<void> over;
    const TestTLSServer peer({.identity = &server(), .protocol = protocol}, [&](TestPeer& client) {
      if (std::string_view(protocol) == "h2") {
        HTTP2Peer streams(client);
        const auto stream = streams.nextRequest();
        if (!stream) return;
        streams.sendHead(*stream);
        streams.sendData(*stream, kEvent);
        requested.set_value();
        static_cast<void>(streams.nextOf(HTTP2Frame::reset));
      } else {
        static_cast<void>(client.readRequest());
        client.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n");
        requested.set_value();
        static_cast<void>(client.readRequest());
      }
      over.set_value();
    });
    OutcomeBox box;
    const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
    task->resume();
    ASSERT_TRUE(isReady(requested.get_future())) << protocol;
    task->cancel();
    EXPECT_TRUE(isReady(over.get_future())) << protocol;
    EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  }
}

}  // namespace
}  // namespace kvl::testing
