// Where a body ends, and that nothing counts as whole of which the rest may be missing.
#include "tests/support/HTTP2Peer.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <memory>
#include <semaphore>
#include <string>
#include <tuple>

namespace kvl::testing {
namespace {

enum class Ending { withNotice, withoutNotice, byReset };

void finish(TestPeer& peer, Ending how) {
  if (how == Ending::withoutNotice) peer.closeWithoutNotice();
  if (how == Ending::byReset) peer.reset();
}

void expectHello(const Outcome& outcome, bool isWhole) {
  EXPECT_EQ(outcome.code(), isWhole ? 0 : NSURLErrorNetworkConnectionLost);
  EXPECT_EQ(outcome.text(), isWhole ? "hello" : "(absent)");
}

struct Body {
  const char* name;
  const char* wire;
  // Whether only the connection's end tells that this is all.
  bool endsWithConnection = false;
  // Whether more was announced.
  bool isCut = false;
};

constexpr Body kBodies[] = {
    {.name = "OfHTTP10", .wire = "HTTP/1.0 200 OK\r\n\r\nhello", .endsWithConnection = true},
    {.name = "OfHTTP11",
     .wire = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nhello",
     .endsWithConnection = true},
    {.name = "OfHTTP11WithoutAnyField",
     .wire = "HTTP/1.1 200 OK\r\n\r\nhello",
     .endsWithConnection = true},
    {.name = "WithALength", .wire = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"},
    {.name = "WithALengthOfHTTP10", .wire = "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello"},
    {.name = "WithALengthAndConnectionClose",
     .wire = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 5\r\n\r\nhello"},
    {.name = "InChunks",
     .wire = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n"},
    {.name = "InChunksWithConnectionClose",
     .wire = "HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n"
             "5\r\nhello\r\n0\r\n\r\n"},
    {.name = "ShorterThanItsLength",
     .wire = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nhello",
     .isCut = true},
    {.name = "WithoutItsLastChunk",
     .wire = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
     .isCut = true}};

class EndOfBodyTest : public URLSessionTest,
                      public ::testing::WithParamInterface<std::tuple<Body, int>> {
 protected:
  [[nodiscard]] static const Body& body() { return std::get<Body>(GetParam()); }
  // Whether the body's own bytes show that this is all of it.
  [[nodiscard]] static bool tellsItsEnd() { return !body().isCut && !body().endsWithConnection; }
  [[nodiscard]] static std::unique_ptr<TestTLSServer> start(Ending how) {
    return std::make_unique<TestTLSServer>(
        TestServerOptions{.identity = &server(), .tlsVersion = std::get<int>(GetParam())},
        [how](TestPeer& peer) {
          static_cast<void>(peer.readRequest());
          peer.write(body().wire);
          finish(peer, how);
        });
  }
};

TEST_P(EndOfBodyTest, IsWholeWhenTheServerSaysSo) {
  const auto peer = start(Ending::withNotice);
  expectHello(load(*session, URLRequest(peer->url("127.0.0.1"))), !body().isCut);
}

TEST_P(EndOfBodyTest, IsWholeWithoutTLSsNoticeOnlyWhenItsEndIsKnownOtherwise) {
  const auto peer = start(Ending::withoutNotice);
  // A connection that ended is no hindrance to the next request either.
  for (int ended = 0; ended < 2; ++ended) {
    ASSERT_TRUE(kvltest::waitUntil([&] { return peer->ended() == ended; }));
    expectHello(load(*session, URLRequest(peer->url("127.0.0.1"))), tellsItsEnd());
  }
}

TEST_P(EndOfBodyTest, IsNeverWholeAfterAResetThatCuts) {
  const auto peer = start(Ending::byReset);
  const Outcome outcome = load(*session, URLRequest(peer->url("127.0.0.1")));
  // A reset may also overtake what was sent before.
  expectHello(outcome, tellsItsEnd() && !outcome.error);
}

INSTANTIATE_TEST_SUITE_P(Bodies, EndOfBodyTest,
                         ::testing::Combine(::testing::ValuesIn(kBodies),
                                            ::testing::Values(TLS1_2_VERSION, TLS1_3_VERSION)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) +
                                  (std::get<1>(row.param) == TLS1_2_VERSION ? "TLS12" : "TLS13");
                         });

// A connection that is closed with something unread is reset, and the answer may be lost with it.
void expectNothingMoreOf(HTTP2Peer& client) {
  client.send({.type = HTTP2Frame::ping, .payload = std::string(8, 'p')});
  EXPECT_TRUE(client.nextOf(HTTP2Frame::ping));
}

class EndOfStreamTest : public URLSessionTest, public ::testing::WithParamInterface<int> {};

TEST_P(EndOfStreamTest, OfHTTP10IsALossUnlessTheServerSaysSo) {
  for (const Ending how : {Ending::withNotice, Ending::withoutNotice, Ending::byReset}) {
    std::binary_semaphore taken(0);
    const TestTLSServer peer({.identity = &server(), .tlsVersion = GetParam()},
                             [&](TestPeer& client) {
                               static_cast<void>(client.readRequest());
                               client.write("HTTP/1.0 200 OK\r\n\r\ndata: a\n\n");
                               taken.acquire();
                               finish(client, how);
                             });
    delegate = makeDelegate();
    session = URLSession::create({}, delegate);
    session->dataTask(URLRequest(peer.url("127.0.0.1")))->resume();
    delegate->waitForBytes(9);
    taken.release();
    const auto error = delegate->waitForCompletion();
    EXPECT_EQ(error ? error->code() : 0,
              how == Ending::withNotice ? 0 : NSURLErrorNetworkConnectionLost);
    EXPECT_EQ(delegate->text(), "data: a\n\n");
  }
}

// There each stream has an end of its own.
TEST_P(EndOfStreamTest, OfHTTP2NeedsNoNoticeAndIsReplacedByNone) {
  for (const Ending how : {Ending::withNotice, Ending::withoutNotice}) {
    for (const bool isWhole : {true, false}) {
      const TestTLSServer peer({.identity = &server(), .tlsVersion = GetParam(), .protocol = "h2"},
                               [&](TestPeer& client) {
                                 HTTP2Peer streams(client);
                                 const auto stream = streams.nextRequest();
                                 if (!stream) return;
                                 expectNothingMoreOf(streams);
                                 streams.sendHead(*stream);
                                 streams.sendData(*stream, "hello", isWhole);
                                 finish(client, how);
                               });
      expectHello(load(*session, URLRequest(peer.url("127.0.0.1"))), isWhole);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, EndOfStreamTest,
                         ::testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto& version) {
                           return version.param == TLS1_2_VERSION ? "TLS12" : "TLS13";
                         });

}  // namespace
}  // namespace kvl::testing
