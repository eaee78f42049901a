#include "tests/urlloading/URLSessionFixture.h"

namespace kvl::testing {
namespace {

// Every case under both versions of TLS.
class TLSFailureTest : public URLSessionTest, public ::testing::WithParamInterface<int> {
 protected:
  std::int64_t codeOf(const TestIdentity& identity, std::vector<const TestIdentity*> extra = {},
                      const TestIdentity* clientAuthority = nullptr) {
    const TestTLSServer peer({.identity = &identity,
                              .extraChain = std::move(extra),
                              .tlsVersion = GetParam(),
                              .clientAuthority = clientAuthority},
                             answering(httpResponse("hello")));
    const Outcome outcome = load(*session, URLRequest(peer.url("127.0.0.1")));
    if (outcome.error) EXPECT_EQ(outcome.error->domain(), NSURLErrorDomain);
    return outcome.code();
  }
  std::int64_t codeOfServer(const CertificateOptions& options) {
    return codeOf(makeTestIdentity(options, &root()));
  }
  std::int64_t codeOfClient(const TestIdentity* client) {
    delegate->credential = client == nullptr ? nullptr : credentialOf(*client);
    return codeOf(server(), {}, &root());
  }
};

TEST_P(TLSFailureTest, ATrustedServerAnswers) {
  EXPECT_EQ(codeOf(server()), 0);
}

TEST_P(TLSFailureTest, AnAcceptedClientCertificateGetsAnAnswer) {
  EXPECT_EQ(codeOf(server(), {}, &root()), 0);
}

TEST_P(TLSFailureTest, ServerCertificateExpired) {
  EXPECT_EQ(codeOfServer({.validFrom = -9, .validTo = -1}), NSURLErrorServerCertificateHasBadDate);
}

TEST_P(TLSFailureTest, ServerCertificateNotYetValid) {
  EXPECT_EQ(codeOfServer({.validFrom = 2}), NSURLErrorServerCertificateNotYetValid);
}

TEST_P(TLSFailureTest, AnchorExpired) {
  const auto expired = makeTestAuthority("expired root", -10, -1);
  delegate->anchor = expired.certificateRef();
  EXPECT_EQ(codeOf(makeTestIdentity({}, &expired)), NSURLErrorServerCertificateHasBadDate);
}

TEST_P(TLSFailureTest, UnknownRootWithTheLeafAlone) {
  const auto other = makeTestAuthority("other root");
  EXPECT_EQ(codeOf(makeTestIdentity({}, &other)), NSURLErrorServerCertificateHasUnknownRoot);
}

TEST_P(TLSFailureTest, UnknownRootThatTheServerSends) {
  const auto other = makeTestAuthority("other root");
  EXPECT_EQ(codeOf(makeTestIdentity({}, &other), {&other}),
            NSURLErrorServerCertificateHasUnknownRoot);
}

TEST_P(TLSFailureTest, SelfSignedServerCertificate) {
  EXPECT_EQ(codeOf(makeTestIdentity({})), NSURLErrorServerCertificateHasUnknownRoot);
}

TEST_P(TLSFailureTest, WrongAddress) {
  EXPECT_EQ(codeOfServer({.subjectAltName = "DNS:localhost,IP:127.0.0.2"}),
            NSURLErrorServerCertificateUntrusted);
}

TEST_P(TLSFailureTest, WrongHostName) {
  const auto named = makeTestIdentity({.subjectAltName = "DNS:other.example"}, &root());
  const TestTLSServer peer({.identity = &named, .tlsVersion = GetParam()},
                           answering(httpResponse("hello")));
  EXPECT_EQ(load(*session, URLRequest(peer.url("localhost"))).code(),
            NSURLErrorServerCertificateUntrusted);
}

TEST_P(TLSFailureTest, WrongPurpose) {
  EXPECT_EQ(codeOfServer({.extendedKeyUsage = "clientAuth"}), NSURLErrorServerCertificateUntrusted);
}

TEST_P(TLSFailureTest, ServerKeyTooSmall) {
  EXPECT_EQ(codeOfServer({.rsaBits = 1024}), NSURLErrorServerCertificateUntrusted);
}

TEST_P(TLSFailureTest, ForgedSignature) {
  EXPECT_EQ(codeOf(withForgedSignature(server())), NSURLErrorServerCertificateUntrusted);
}

TEST_P(TLSFailureTest, NoClientCertificate) {
  EXPECT_EQ(codeOfClient(nullptr), NSURLErrorClientCertificateRequired);
}

TEST_P(TLSFailureTest, ClientCertificateOfAnotherAuthority) {
  const auto other = makeTestAuthority("other root");
  const auto client = makeTestIdentity({}, &other);
  EXPECT_EQ(codeOfClient(&client), NSURLErrorClientCertificateRejected);
}

TEST_P(TLSFailureTest, ClientCertificateExpired) {
  const auto client = makeTestIdentity({.validFrom = -9, .validTo = -1}, &root());
  EXPECT_EQ(codeOfClient(&client), NSURLErrorClientCertificateRejected);
}

TEST_P(TLSFailureTest, ClientCertificateOfTheWrongPurpose) {
  const auto client = makeTestIdentity({.extendedKeyUsage = "serverAuth"}, &root());
  EXPECT_EQ(codeOfClient(&client), NSURLErrorClientCertificateRejected);
}

TEST_P(TLSFailureTest, ARefusedClientCertificateIsNeverTakenForALostConnection) {
  const auto other = makeTestAuthority("other root");
  const auto client = makeTestIdentity({}, &other);
  delegate->credential = credentialOf(client);
  const TestTLSServer peer(
      {.identity = &server(), .tlsVersion = GetParam(), .clientAuthority = &root()},
      answering(httpResponse("hello")));
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round)
    ASSERT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).code(),
              NSURLErrorClientCertificateRejected);
}

TEST_P(TLSFailureTest, ADelegateThatIsGoneRefuses) {
  delegate.reset();
  EXPECT_EQ(codeOf(server()), NSURLErrorServerCertificateUntrusted);
}

INSTANTIATE_TEST_SUITE_P(Versions, TLSFailureTest,
                         ::testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto& version) {
                           return version.param == TLS1_2_VERSION ? "TLS12" : "TLS13";
                         });

class FailureTest : public URLSessionTest {};

// Under TLS 1.3 the server refuses behind the handshake, and may have closed by then.
TEST_F(FailureTest, TheAlertOfARefusalIsTold) {
  const auto other = makeTestAuthority("other root");
  delegate->credential = credentialOf(makeTestIdentity({}, &other));
  const TestTLSServer peer(
      {.identity = &server(), .tlsVersion = TLS1_2_VERSION, .clientAuthority = &root()},
      answering(httpResponse("hello")));
  const auto error = load(*session, URLRequest(peer.url("127.0.0.1"))).error;
  ASSERT_TRUE(error);
  const auto text = error->userInfo()[NSDebugDescriptionErrorKey].string().value_or("");
  EXPECT_TRUE(text.ends_with("(TLS alert 48)")) << text;
}

TEST_F(FailureTest, ARequestThatCannotBeSentReachesNobody) {
  struct Row {
    std::string_view text, domain;
    std::int64_t code;
  };
  const Row rows[] = {{"not a url", NSURLErrorDomain, NSURLErrorBadURL},
                      {"https:/localhost/", NSURLErrorDomain, NSURLErrorBadURL},
                      {"https:///localhost/", NSURLErrorDomain, NSURLErrorBadURL},
                      {"relative/path", NSURLErrorDomain, NSURLErrorUnsupportedURL},
                      {"file:///etc/passwd", NSURLErrorDomain, NSURLErrorUnsupportedURL},
                      {"ftp://localhost/", NSURLErrorDomain, NSURLErrorUnsupportedURL}};
  for (const Row& row : rows) {
    const Outcome outcome = load(*session, URLRequest(row.text));
    ASSERT_TRUE(outcome.error) << row.text;
    EXPECT_TRUE(outcome.error->is(row.domain, row.code)) << outcome.error->description();
    EXPECT_EQ(outcome.error->userInfo()[NSURLErrorFailingURLStringErrorKey].string(), row.text);
  }
}

TEST_F(FailureTest, ForbiddenHeaderFieldsAndMethodsNeverReachTheWire) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  URLRequest injected(peer.url("127.0.0.1"));
  injected.headers().append("X", "a\r\nY: b");
  URLRequest badMethod(peer.url("127.0.0.1"));
  badMethod.setMethod("GET /x HTTP/1.1\r\nX:");
  for (const URLRequest& request : {injected, badMethod}) {
    const Outcome outcome = load(*session, request);
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->is(NSPOSIXErrorDomain, 22));
    EXPECT_TRUE(outcome.error->userInfo().contains(NSLocalizedDescriptionKey));
  }
  EXPECT_EQ(peer.connections(), 0);
}

TEST_F(FailureTest, ARefusedConnectionCannotConnect) {
  std::string url;
  {
    const TestTLSServer gone({}, answering(""));
    url = gone.url("127.0.0.1");
  }
  EXPECT_EQ(load(*session, URLRequest(url)).code(), NSURLErrorCannotConnectToHost);
}

TEST_F(FailureTest, AnUnknownHostIsNotFound) {
  EXPECT_EQ(load(*session, URLRequest("https://no-such-host.invalid/")).code(),
            NSURLErrorCannotFindHost);
}

TEST_F(FailureTest, AConnectionThatEndsInTheHandshakeIsNotSecure) {
  const TestTLSServer peer({.identity = &server(), .dropsConnections = true}, answering(""));
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).code(),
            NSURLErrorSecureConnectionFailed);
}

TEST_F(FailureTest, ABodyThatStopsEarlyIsALostConnection) {
  const TestTLSServer truncating({.identity = &server()}, [](TestPeer& peer) {
    static_cast<void>(peer.readRequest());
    peer.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
  });
  const TestTLSServer resetting({.identity = &server()}, [](TestPeer& peer) {
    static_cast<void>(peer.readRequest());
    peer.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
    peer.reset();
  });
  for (const TestTLSServer* peer : {&truncating, &resetting}) {
    const Outcome outcome = load(*session, URLRequest(peer->url("127.0.0.1")));
    EXPECT_EQ(outcome.code(), NSURLErrorNetworkConnectionLost);
    EXPECT_FALSE(outcome.body);
  }
}

TEST_F(FailureTest, SomethingThatIsNotHTTPIsABadResponse) {
  const TestTLSServer peer({}, answering("SSH-2.0-something\r\n\r\n"));
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).code(), NSURLErrorBadServerResponse);
}

TEST_F(FailureTest, SilenceLongerThanTheIntervalTimesOut) {
  const TestTLSServer peer({}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    static_cast<void>(client.readRequest());
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setTimeoutInterval(std::chrono::milliseconds(100));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, std::chrono::milliseconds(100));
}

// Keeps the challenges of one method for ever.
struct SilentDelegate : RecordingDelegate {
  void didReceiveChallenge(URLSession& of, const Challenge& challenge,
                           ChallengeHandler handler) override {
    if (challenge.protectionSpace.authenticationMethod == silentAbout) {
      kept = std::move(handler);
    } else {
      RecordingDelegate::didReceiveChallenge(of, challenge, std::move(handler));
    }
  }
  std::string_view silentAbout;
  ChallengeHandler kept;
};

TEST_F(FailureTest, AnAnswerThatDoesNotComeIsATimeOut) {
  const TestTLSServer peer({.identity = &server(), .clientAuthority = &root()},
                           answering(httpResponse("hello")));
  for (const auto method :
       {NSURLAuthenticationMethodServerTrust, NSURLAuthenticationMethodClientCertificate}) {
    const auto silent = std::make_shared<SilentDelegate>();
    silent->anchor = root().certificateRef();
    silent->silentAbout = method;
    const auto other = URLSession::create({}, silent);
    URLRequest request(peer.url("127.0.0.1"));
    request.setTimeoutInterval(std::chrono::seconds(2));
    EXPECT_EQ(load(*other, request).code(), NSURLErrorTimedOut) << method;
    EXPECT_TRUE(silent->kept) << method;
  }
}

}  // namespace
}  // namespace kvl::testing
