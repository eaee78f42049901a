// A request goes out once, whatever becomes of its connection, unless the server has declined it.
#include "tests/support/HTTP2Peer.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <optional>
#include <semaphore>

namespace kvl::testing {
namespace {

constexpr std::size_t kLargeBody = (std::size_t{1} << 20) + 1;

URLRequest requestWith(const TestTLSServer& peer, const std::string& method, std::size_t bodySize) {
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod(method);
  if (bodySize > 0) request.setBody(Data::fromText(std::string(bodySize, 'x')));
  return request;
}

struct Kind {
  const char* name;
  const char* method;
  std::size_t bodySize;
};

class OnceTest : public URLSessionTest, public ::testing::WithParamInterface<Kind> {
 protected:
  [[nodiscard]] URLRequest requestTo(const TestTLSServer& peer) const {
    return requestWith(peer, GetParam().method, GetParam().bodySize);
  }
};

TEST_P(OnceTest, AConnectionThatEndsWithoutAnAnswerLosesTheRequest) {
  std::atomic<int> arrivals = 0;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    if (client.readRequest().empty() || !client.write(httpResponse("first"))) return;
    if (!client.readRequest().empty()) ++arrivals;
  });
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "first");
  const Outcome outcome = load(*session, requestTo(peer));
  EXPECT_EQ(outcome.code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(arrivals, 1);
  EXPECT_EQ(peer.connections(), 1);
  // The next one is a new exchange.
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "first");
}

TEST_P(OnceTest, AServerThatIsGoneAfterReadingHasLostTheRequest) {
  std::atomic<int> arrivals = 0;
  std::optional<TestTLSServer> peer;
  peer.emplace(TestServerOptions{.identity = &server()}, [&](TestPeer& client) {
    if (client.readRequest().empty() || !client.write(httpResponse("first"))) return;
    if (client.readRequest().empty()) return;
    ++arrivals;
    peer->stopListening();
    client.reset();
  });
  EXPECT_EQ(load(*session, URLRequest(peer->url("127.0.0.1"))).text(), "first");
  EXPECT_EQ(load(*session, requestTo(*peer)).code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(arrivals, 1);
}

TEST_P(OnceTest, ConnectionsThatEndAfterEachAnswerCostNoRequest) {
  constexpr int kRequests = 5;
  enum class End { properly, withoutNotice, byReset };
  for (const End end : {End::properly, End::withoutNotice, End::byReset}) {
    std::atomic<int> arrivals = 0;
    std::counting_semaphore answered(0);
    const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
      if (client.readRequest().empty()) return;
      ++arrivals;
      client.write(httpResponse("hello"));
      answered.acquire();  // a reset takes with it what has not been read
      if (end == End::withoutNotice) client.closeWithoutNotice();
      if (end == End::byReset) client.reset();
    });
    for (int sent = 1; sent <= kRequests; ++sent) {
      const Outcome outcome = load(*session, requestTo(peer));
      answered.release();
      ASSERT_FALSE(outcome.error) << outcome.error->description();
      EXPECT_EQ(outcome.text(), "hello");
      ASSERT_TRUE(kvltest::waitUntil([&] { return peer.ended() == sent; }));
    }
    EXPECT_EQ(arrivals, kRequests);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, OnceTest,
                         ::testing::Values(Kind{"GET", "GET", 0}, Kind{"POST", "POST", 100},
                                           Kind{"LargePOST", "POST", kLargeBody},
                                           Kind{"PUT", "PUT", 100}, Kind{"DELETE", "DELETE", 0}),
                         [](const auto& kind) { return kind.param.name; });

class OnceOverHTTP2Test : public URLSessionTest {};

TEST_F(OnceOverHTTP2Test, AConnectionThatEndsWithoutAnAnswerLosesTheRequest) {
  std::atomic<int> arrivals = 0;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer client(connection);
    const auto first = client.nextRequest();
    if (!first) return;
    client.sendHead(*first, true);
    if (client.nextRequest()) ++arrivals;
  });
  const URLRequest request = requestWith(peer, "POST", 100);
  EXPECT_FALSE(load(*session, request).error);
  EXPECT_EQ(load(*session, request).code(), NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(arrivals, 1);
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(OnceOverHTTP2Test, ConnectionsThatEndAfterEachAnswerCostNoRequest) {
  constexpr int kRequests = 5;
  for (const bool announces : {false, true}) {
    std::counting_semaphore answered(0);
    const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
      HTTP2Peer client(connection);
      const auto first = client.nextRequest();
      if (!first) return;
      client.sendHead(*first, true);
      answered.acquire();
      if (announces) client.sendGoAway(*first);
    });
    for (int sent = 1; sent <= kRequests; ++sent) {
      const Outcome outcome = load(*session, requestWith(peer, "POST", 100));
      answered.release();
      ASSERT_FALSE(outcome.error) << outcome.error->description();
      ASSERT_TRUE(kvltest::waitUntil([&] { return peer.ended() == sent; }));
    }
  }
}

}  // namespace
}  // namespace kvl::testing
