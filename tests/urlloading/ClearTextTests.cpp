// Loading without TLS.
#include "tests/urlloading/URLSessionFixture.h"

namespace kvl::testing {
namespace {

class ClearTextTest : public URLSessionTest {};

TEST_F(ClearTextTest, NothingIsSentInClearTextUnlessTheConfigurationSaysSo) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  const auto careful = URLSession::create(URLSessionConfiguration::ephemeral(), delegate);
  for (const std::string host : {"127.0.0.1", "localhost", "LOCALHOST"}) {
    const Outcome outcome = load(*careful, URLRequest(peer.url(host)));
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->is(NSURLErrorDomain,
                                  NSURLErrorAppTransportSecurityRequiresSecureConnection));
    EXPECT_EQ(outcome.error->localizedDescription(),
              "The address is not secure, and only secure connections are allowed.");
    EXPECT_FALSE(outcome.response);
  }
  EXPECT_EQ(peer.connections(), 0);
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "hello");
}

TEST_F(ClearTextTest, ARedirectFromHTTPSLeadsToClearTextUnderNoConfiguration) {
  const TestTLSServer plain({}, answering(httpResponse("hello")));
  const TestTLSServer secure(
      {.identity = &server()},
      answering(
          httpResponse("moved", "302 Found", "Location: " + plain.url("127.0.0.1") + "\r\n")));
  const auto careful = URLSession::create(URLSessionConfiguration::ephemeral(), delegate);
  for (const auto& loader : {session, careful})
    EXPECT_EQ(load(*loader, URLRequest(secure.url("127.0.0.1"))).text(), "moved");
  EXPECT_EQ(plain.connections(), 0);
}

}  // namespace
}  // namespace kvl::testing
