// A server that has taken the identity and fails afterwards has not refused it.
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <algorithm>

namespace kvl::testing {
namespace {

constexpr std::uint32_t kProtocolError = 1;
constexpr std::uint32_t kInternalError = 2;

void closeAfterRequest(TestPeer& client) {
  static_cast<void>(client.readRequest());
}

class AcceptanceTest : public URLSessionTest {
 protected:
  // Asks for a client certificate and has no other way to show that it took it.
  [[nodiscard]] TestServerOptions options(int version, std::string protocol = {}) const {
    return {.identity = &server(),
            .tlsVersion = version,
            .clientAuthority = &root(),
            .protocol = std::move(protocol),
            .tickets = 0};
  }
  [[nodiscard]] std::int64_t codeOf(const TestTLSServer& peer) const {
    return load(*session, URLRequest(peer.url("127.0.0.1"))).code();
  }
  // What a fresh HTTP/2 connection comes to when `answer` is what a request gets.
  [[nodiscard]] std::int64_t codeOver2(
      int version, const std::function<void(HTTP2Peer&, std::uint32_t stream)>& answer) const {
    const TestTLSServer peer(options(version, "h2"), [&answer](TestPeer& connection) {
      HTTP2Peer client(connection);
      if (const auto stream = client.nextRequest()) answer(client, *stream);
    });
    return codeOf(peer);
  }
  void refuseTheIdentity() const {
    static const TestIdentity stranger = makeTestIdentity({.commonName = "stranger"});
    delegate->credential = credentialOf(stranger);
  }
};

TEST_F(AcceptanceTest, AFinishedHandshakeOfTLS12IsProof) {
  const TestTLSServer peer(options(TLS1_2_VERSION), closeAfterRequest);
  EXPECT_EQ(codeOf(peer), NSURLErrorNetworkConnectionLost);
}

TEST_F(AcceptanceTest, ASessionTicketOfTLS13IsProof) {
  auto ticketing = options(TLS1_3_VERSION);
  ticketing.tickets = 1;
  const TestTLSServer peer(ticketing, closeAfterRequest);
  EXPECT_EQ(codeOf(peer), NSURLErrorNetworkConnectionLost);
}

TEST_F(AcceptanceTest, AFreshConnectionWithoutProofCountsAsARefusal) {
  const TestTLSServer peer(options(TLS1_3_VERSION), closeAfterRequest);
  EXPECT_EQ(codeOf(peer), NSURLErrorClientCertificateRejected);
  delegate->credential = nullptr;
  EXPECT_EQ(codeOf(peer), NSURLErrorClientCertificateRequired);
}

TEST_F(AcceptanceTest, AnEarlierAnswerOnTheConnectionIsProof) {
  const TestTLSServer peer(options(TLS1_3_VERSION), [](TestPeer& client) {
    if (client.readRequest().empty() || !client.write(httpResponse("first"))) return;
    static_cast<void>(client.readRequest());
    client.reset();
  });
  EXPECT_EQ(codeOf(peer), 0);
  EXPECT_EQ(codeOf(peer), NSURLErrorNetworkConnectionLost);
}

TEST_F(AcceptanceTest, AnyFrameOfHTTP2IsProof) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    EXPECT_EQ(codeOver2(version, [](HTTP2Peer&, std::uint32_t) {}),
              NSURLErrorNetworkConnectionLost);
    EXPECT_EQ(codeOver2(version, [](HTTP2Peer& client,
                                    std::uint32_t) { client.sendGoAway(0, kInternalError); }),
              NSURLErrorNetworkConnectionLost);
    EXPECT_EQ(codeOver2(version,
                        [](HTTP2Peer& client, std::uint32_t stream) {
                          client.sendReset(stream, kInternalError);
                          static_cast<void>(client.next());
                        }),
              NSURLErrorNetworkConnectionLost);
  }
}

TEST_F(AcceptanceTest, MalformedFramesAreNotAboutTheIdentity) {
  const HTTP2Frame rows[] = {
      {HTTP2Frame::data, 0, 0, "data of no stream"},
      {HTTP2Frame::data, 0, 1, "data before the head"},
      {HTTP2Frame::settings, 0, 1, {}},
      {HTTP2Frame::settings, 0, 0, "odd"},
      {HTTP2Frame::ping, 0, 0, "short"},
      {HTTP2Frame::windowUpdate, 0, 0, std::string(4, '\0')},
      {HTTP2Frame::headers, HTTP2Frame::kEndHeaders, 1, "\xff\xff\xff\xff\xff\xff\xff"},
      {HTTP2Frame::headers, HTTP2Frame::kEndHeaders, 2, "\x88"},
      {HTTP2Frame::headers, HTTP2Frame::kEndHeaders | HTTP2Frame::kEndStream, 1, {}},
      {HTTP2Frame::reset, 0, 0, std::string(4, '\0')}};
  for (const HTTP2Frame& row : rows) {
    const auto code = codeOver2(TLS1_3_VERSION, [&row](HTTP2Peer& client, std::uint32_t) {
      client.send(row);
      client.sendGoAway(0, kProtocolError);
    });
    EXPECT_TRUE(code == NSURLErrorNetworkConnectionLost || code == NSURLErrorBadServerResponse)
        << code << " for type " << int{row.type} << " on stream " << row.stream;
  }
}

TEST_F(AcceptanceTest, AllRequestsOnARefusedConnectionAreToldOfTheRefusal) {
  refuseTheIdentity();
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    auto ticketing = options(version, "h2");
    ticketing.tickets = 2;
    const TestTLSServer peer(ticketing, [](TestPeer& client) { HTTP2Peer{client}; });
    std::vector<OutcomeBox> boxes(20);
    for (auto& box : boxes)
      session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler())->resume();
    for (auto& box : boxes)
      EXPECT_EQ(box.wait().code(), NSURLErrorClientCertificateRejected) << version;
  }
}

// Answers nothing that concerns certificates, as a delegate does that has just lost its identity.
class ClosingDelegate : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& of, const Challenge& challenge,
                           ChallengeHandler handler) override {
    if (challenge.protectionSpace.authenticationMethod != closesAt)
      return RecordingDelegate::didReceiveChallenge(of, challenge, std::move(handler));
    of.finishTasksAndInvalidate();
    handler(ChallengeDisposition::rejectProtectionSpace, nullptr);
  }
  std::string_view closesAt;
};

TEST_F(AcceptanceTest, AHandshakeThatIsUnderWayWhenTheSessionObjectClosesIsCutOff) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    for (const auto method :
         {NSURLAuthenticationMethodServerTrust, NSURLAuthenticationMethodClientCertificate}) {
      const TestTLSServer peer(options(version), answering(httpResponse("hello")));
      const auto closing = std::make_shared<ClosingDelegate>();
      closing->anchor = delegate->anchor;
      closing->credential = delegate->credential;
      closing->closesAt = method;
      const auto other = URLSession::create({}, closing);
      EXPECT_EQ(load(*other, URLRequest(peer.url("127.0.0.1"))).code(),
                NSURLErrorNetworkConnectionLost)
          << method;
    }
  }
}

TEST_F(AcceptanceTest, AClosingSessionObjectStillTellsOfABadServerCertificate) {
  const auto other = makeTestAuthority("other root");
  const auto unknown = makeTestIdentity({}, &other);
  const TestTLSServer peer({.identity = &unknown}, answering(httpResponse("hello")));
  OutcomeBox box;
  session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler())->resume();
  session->finishTasksAndInvalidate();
  EXPECT_EQ(box.wait().code(), NSURLErrorServerCertificateHasUnknownRoot);
}

}  // namespace
}  // namespace kvl::testing
