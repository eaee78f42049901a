// Who gets to see the identity, and what a connection of one identity may be used for.
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

namespace kvl::testing {
namespace {

std::string closing(std::string_view body) {
  return httpResponse(body, "200 OK", "Connection: close\r\n");
}

std::string redirectTo(const std::string& target) {
  return httpResponse("moved", "302 Found", "Location: " + target + "\r\n");
}

// A redirect over HTTP/2 (RFC 7541, 6.2.2): names by their places in the static table.
void sendRedirect(HTTP2Peer& client, std::uint32_t stream, const std::string& target) {
  const std::string status =
      "\x08\x03"
      "302";
  const std::string location = "\x0f\x1f" + std::string(1, static_cast<char>(target.size()));
  client.send({HTTP2Frame::headers, HTTP2Frame::kEndHeaders | HTTP2Frame::kEndStream, stream,
               status + location + target});
}

// Every case under both versions of TLS.
class IdentityTest : public URLSessionTest, public ::testing::WithParamInterface<int> {
 protected:
  [[nodiscard]] static TestServerOptions asking(const TestIdentity& identity = server()) {
    return {.identity = &identity, .tlsVersion = GetParam(), .clientAuthority = &root()};
  }
  [[nodiscard]] Outcome get(const TestTLSServer& peer, std::string_view host = "127.0.0.1") const {
    return load(*session, URLRequest(peer.url(host)));
  }
};

TEST_P(IdentityTest, AServerThatIsNotTrustedNeverSeesIt) {
  const auto other = makeTestAuthority("other root");
  // By the name of the anchor, and with a key that no other test identity has.
  const auto impostor =
      makeTestIdentity({.commonName = "test root", .isAuthority = true, .rsaBits = 2056});
  const TestIdentity rows[] = {makeTestIdentity({}),
                               makeTestIdentity({}, &other),
                               makeTestIdentity({}, &impostor),
                               makeTestIdentity({.validFrom = -9, .validTo = -1}, &root()),
                               makeTestIdentity({.subjectAltName = "DNS:elsewhere.test"}, &root()),
                               makeTestIdentity({.extendedKeyUsage = "clientAuth"}, &root()),
                               withForgedSignature(server())};
  for (const TestIdentity& row : rows) {
    const TestTLSServer peer(asking(row), answering(httpResponse("hello")));
    EXPECT_NE(get(peer).code(), 0);
    EXPECT_EQ(peer.clientCertificates(), 0) << &row - rows;
  }
  EXPECT_TRUE(delegate->clientChallengeHosts().empty());
}

TEST_P(IdentityTest, ARedirectToAnotherNameOfTheSameAddressDoesNotBringIt) {
  const auto named = makeTestIdentity(
      {.subjectAltName = "IP:127.0.0.1,DNS:localhost,DNS:127.1,DNS:2130706433,DNS:0x7f000001"},
      &root());
  for (const std::string name : {"localhost", "127.1", "2130706433", "0x7f000001"}) {
    for (const std::string protocol : {"http/1.1", "h2"}) {
      auto options = asking(named);
      options.protocol = protocol;
      std::uint16_t port = 0;
      const TestTLSServer peer(options, [&](TestPeer& client) {
        const auto target = "https://" + name + ":" + std::to_string(port) + "/";
        if (protocol == "h2") {
          HTTP2Peer connection(client);
          while (const auto stream = connection.nextRequest())
            sendRedirect(connection, *stream, target);
        } else {
          while (!client.readRequest().empty()) client.write(redirectTo(target));
        }
      });
      port = peer.port();
      EXPECT_EQ(get(peer).code(), NSURLErrorClientCertificateRequired) << name << protocol;
      EXPECT_EQ(peer.connections(), 2) << name << protocol;
      EXPECT_EQ(peer.clientCertificates(), 1) << name << protocol;
    }
  }
  for (const auto& host : delegate->clientChallengeHosts()) EXPECT_EQ(host, "127.0.0.1");
}

TEST_P(IdentityTest, AnotherPortOfTheHostGetsItOnlyWhenTheAnchorVouchesForIt) {
  const auto other = makeTestAuthority("other root");
  const auto stranger = makeTestIdentity({}, &other);
  const TestTLSServer elsewhere(asking(stranger), answering(httpResponse("reached")));
  const TestTLSServer first(asking(), answering(redirectTo(elsewhere.url("127.0.0.1"))));
  EXPECT_EQ(get(first).code(), NSURLErrorServerCertificateHasUnknownRoot);
  EXPECT_EQ(elsewhere.connections(), 1);
  EXPECT_EQ(elsewhere.clientCertificates(), 0);
}

// RFC 9113 (9.1.1) lets clients use a connection for every name of its certificate.
TEST_P(IdentityTest, AConnectionServesNoOtherNameOfItsCertificate) {
  auto options = asking();
  options.protocol = "h2";
  const TestTLSServer peer(options, [](TestPeer& client) {
    HTTP2Peer connection(client);
    while (const auto stream = connection.nextRequest()) {
      connection.sendHead(*stream);
      connection.sendData(*stream, "hello", true);
    }
  });
  EXPECT_EQ(get(peer, "127.0.0.1").text(), "hello");
  EXPECT_EQ(get(peer, "localhost").text(), "hello");
  EXPECT_EQ(peer.connections(), 2);
  EXPECT_EQ(delegate->clientChallengeHosts(), (std::vector<std::string>{"127.0.0.1", "localhost"}));
}

TEST_P(IdentityTest, NoTLSSessionIsResumed) {
  for (const bool asks : {false, true}) {
    auto options = asking();
    if (!asks) options.clientAuthority = nullptr;
    const TestTLSServer peer(options, [](TestPeer& client) {
      static_cast<void>(client.readRequest());
      client.write(closing(client.clientSubject()));
    });
    delegate = makeDelegate();
    session = URLSession::create({}, delegate);
    EXPECT_EQ(get(peer).text(), asks ? "/CN=client" : "");
    const auto second = makeTestIdentity({.commonName = "second"}, &root());
    delegate->credential = credentialOf(second);
    EXPECT_EQ(get(peer).text(), asks ? "/CN=second" : "");
    // What would go on with the session of before would trust an anchor that no longer counts.
    const auto other = makeTestAuthority("other root");
    delegate->anchor = other.certificateRef();
    EXPECT_EQ(get(peer).code(), NSURLErrorServerCertificateHasUnknownRoot);
    EXPECT_EQ(delegate->trustChallenges(), 3);
    EXPECT_EQ(peer.resumptions(), 0);
  }
}

TEST_P(IdentityTest, AConnectionBelongsToTheSessionObjectThatMadeIt) {
  const TestTLSServer peer(asking(), [](TestPeer& client) {
    while (!client.readRequest().empty()) client.write(httpResponse(client.clientSubject()));
  });
  const auto renewed = makeDelegate();
  const auto second = makeTestIdentity({.commonName = "second"}, &root());
  renewed->credential = credentialOf(second);
  const auto next = URLSession::create({}, renewed);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(get(peer).text(), "/CN=client");
    EXPECT_EQ(load(*next, URLRequest(peer.url("127.0.0.1"))).text(), "/CN=second");
  }
  EXPECT_EQ(peer.connections(), 2);
}

TEST_P(IdentityTest, AServerThatAsksForItLaterDoesNotGetIt) {
  auto options = asking();
  options.clientAuthority = nullptr;
  const TestTLSServer peer(options, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(httpResponse("first"));
    static_cast<void>(client.readRequest());
    client.askForCertificate();
    client.write(httpResponse("second"));
    static_cast<void>(client.readRequest());
  });
  EXPECT_EQ(get(peer).text(), "first");
  static_cast<void>(get(peer));  // fails or not, as the server takes the refusal
  EXPECT_EQ(peer.clientCertificates(), 0);
  EXPECT_TRUE(delegate->clientChallengeHosts().empty());
}

using RenegotiationTest = URLSessionTest;

// Not even the exchange that made the connection, which is still there to answer.
TEST_F(RenegotiationTest, DoesNotBringTheIdentity) {
  const TestTLSServer peer({.identity = &server(), .tlsVersion = TLS1_2_VERSION},
                           [](TestPeer& client) {
                             static_cast<void>(client.readRequest());
                             client.askForCertificate();
                             static_cast<void>(client.readRequest());
                           });
  static_cast<void>(load(*session, URLRequest(peer.url("127.0.0.1"))));
  EXPECT_EQ(peer.clientCertificates(), 0);
  EXPECT_TRUE(delegate->clientChallengeHosts().empty());
}

INSTANTIATE_TEST_SUITE_P(Versions, IdentityTest, ::testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto& version) {
                           return version.param == TLS1_2_VERSION ? "TLS12" : "TLS13";
                         });

}  // namespace
}  // namespace kvl::testing
