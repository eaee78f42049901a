#include "tests/urlloading/URLSessionFixture.h"

namespace kvl::testing {
namespace {

class RedirectTest : public URLSessionTest {
 protected:
  static std::string redirectTo(const std::string& target,
                                const std::string& status = "302 Found") {
    return httpResponse("moved", status, "Location: " + target + "\r\n");
  }
};

TEST_F(RedirectTest, MethodsFollowTheStatus) {
  struct Row {
    std::string status, method, expected;
  };
  const Row rows[] = {{"301 M", "POST", "GET"}, {"302 F", "POST", "GET"}, {"303 S", "PUT", "GET"},
                      {"302 F", "PUT", "PUT"},  {"303 S", "GET", "GET"},  {"307 T", "POST", "POST"},
                      {"308 P", "PUT", "PUT"}};
  for (const Row& row : rows) {
    const TestTLSServer peer({}, [&](TestPeer& client) {
      static_cast<void>(client.readRequest());
      client.write(redirectTo("../next", row.status));
      client.write(httpResponse(client.readRequest()));
    });
    URLRequest request(peer.url("127.0.0.1", "/a/b#part"));
    request.setMethod(row.method);
    if (row.method != "GET") request.setBody(Data::fromText("some body"));
    const Outcome outcome = load(*session, request);
    EXPECT_TRUE(outcome.text().starts_with(row.expected + " /next HTTP")) << outcome.text();
    EXPECT_EQ(outcome.text().ends_with("some body"), row.expected != "GET") << outcome.text();
    EXPECT_EQ(outcome.response->url.absoluteString(), peer.url("127.0.0.1", "/next#part"));
  }
}

TEST_F(RedirectTest, TheIdentityIsNotOfferedToAnotherHost) {
  std::atomic<int> requests = 0;
  const TestTLSServer other({.identity = &server(), .clientAuthority = &root()},
                            answering(httpResponse("reached")));
  const TestTLSServer first({.identity = &server(), .clientAuthority = &root()},
                            [&](TestPeer& peer) {
                              EXPECT_NE(peer.clientSubject(), "");
                              static_cast<void>(peer.readRequest());
                              ++requests;
                              peer.write(redirectTo(other.url("localhost")));
                            });
  EXPECT_EQ(load(*session, URLRequest(first.url("127.0.0.1"))).code(),
            NSURLErrorClientCertificateRequired);
  EXPECT_EQ(delegate->clientChallengeHosts(), std::vector<std::string>{"127.0.0.1"});
  // Neither does the direct request afterwards inherit that connection, nor the redirect its.
  EXPECT_EQ(load(*session, URLRequest(other.url("localhost"))).text(), "reached");
  EXPECT_EQ(load(*session, URLRequest(first.url("127.0.0.1"))).code(),
            NSURLErrorClientCertificateRequired);
  EXPECT_EQ(requests, 2);
}

TEST_F(RedirectTest, TheIdentityIsOfferedToAnotherPortOfTheHost) {
  const TestTLSServer other({.identity = &server(), .clientAuthority = &root()},
                            answering(httpResponse("reached")));
  const TestTLSServer first({.identity = &server()}, answering(redirectTo(other.url("127.0.0.1"))));
  EXPECT_EQ(load(*session, URLRequest(first.url("127.0.0.1"))).text(), "reached");
}

TEST_F(RedirectTest, WhatAuthenticatesTheCallerStaysWithItsHost) {
  const TestTLSServer other({},
                            [](TestPeer& peer) { peer.write(httpResponse(peer.readRequest())); });
  const TestTLSServer first({}, answering(redirectTo(other.url("localhost"))));
  URLRequest request(first.url("127.0.0.1"));
  request.headers().set("Authorization", "Bearer secret");
  request.headers().set("Cookie", "secret=1");
  request.headers().set("X-Kept", "1");
  const std::string sent = load(*session, request).text();
  EXPECT_EQ(sent.find("secret"), std::string::npos) << sent;
  EXPECT_NE(sent.find("X-Kept: 1"), std::string::npos) << sent;
}

TEST_F(RedirectTest, ARedirectToAnInsecureOrForeignSchemeIsTheAnswer) {
  for (const std::string target : {"http://127.0.0.1:1/", "file:///etc/passwd", "not a url"}) {
    const TestTLSServer peer({.identity = &server()}, answering(redirectTo(target)));
    const Outcome outcome = load(*session, URLRequest(peer.url("127.0.0.1")));
    ASSERT_FALSE(outcome.error) << target;
    EXPECT_EQ(outcome.response->httpStatusCode, 302);
    EXPECT_EQ(outcome.text(), "moved");
  }
}

TEST_F(RedirectTest, ALoopEndsAtTheLimit) {
  std::atomic<int> requests = 0;
  const TestTLSServer peer({}, [&](TestPeer& client) {
    while (!client.readRequest().empty()) {
      ++requests;
      client.write(redirectTo("/again"));
    }
  });
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).code(),
            NSURLErrorHTTPTooManyRedirects);
  EXPECT_EQ(requests, session->configuration().maximumRedirects + 1);
}

}  // namespace
}  // namespace kvl::testing
