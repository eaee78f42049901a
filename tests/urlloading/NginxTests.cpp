#include "tests/support/Nginx.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <deque>
#include <fstream>
#include <set>

namespace kvl::testing {
namespace {

constexpr std::size_t kLargeSize = 300000;

// Serves two files and says who asks.
class NginxTest : public URLSessionTest, public ::testing::WithParamInterface<const char*> {
 protected:
  [[nodiscard]] std::string url(std::string_view path) const {
    return "https://127.0.0.1:" + std::to_string(nginx_.port()) + std::string(path);
  }

 private:
  [[nodiscard]] kvltest::Nginx start() const {
    write("server.pem", server().certificatePEM());
    write("server.key", server().keyPEM());
    write("clients.pem", root().certificatePEM());
    write("large", std::string(kLargeSize, 'x'));
    write("small", std::string(2000, 's'));
    return {folder_.path(), configuration};
  }
  void write(const std::string& name, const std::string& content) const {
    std::ofstream(folder_.path() / name, std::ios::binary) << content;
  }
  [[nodiscard]] static std::string configuration(std::uint16_t port) {
    return "gzip on; gzip_types *;\nserver { listen 127.0.0.1:" + std::to_string(port) +
           " ssl http2; keepalive_requests 50; root .; ssl_certificate server.pem; "
           "ssl_certificate_key server.key;"
           " ssl_client_certificate clients.pem; ssl_verify_client on; ssl_protocols " +
           GetParam() +
           ";\nlocation /who { return 200 \"$ssl_client_s_dn $server_protocol $ssl_protocol\"; } "
           "location /silent { return 444; } "
           "location /connection { client_max_body_size 9m; return 200 $connection; } "
           "location /slow { limit_rate 1000; try_files /large =404; } "
           "}\n";
  }

  const kvltest::TemporaryDirectory folder_;
  const kvltest::Nginx nginx_ = start();
};

TEST_P(NginxTest, SpeaksHTTP2WithTheIdentity) {
  const Outcome outcome = load(*session, URLRequest(url("/who")));
  ASSERT_FALSE(outcome.error) << outcome.error->description();
  EXPECT_EQ(outcome.response->httpVersion, 20);
  EXPECT_EQ(outcome.text(), std::string("CN=client HTTP/2.0 ") + GetParam());
}

// After as many requests the server ends a connection and declines those that are on their way.
TEST_P(NginxTest, TheEndOfAConnectionCostsNoRequest) {
  constexpr int kRequests = 1500;
  constexpr std::size_t kInFlight = 16;
  std::deque<OutcomeBox> boxes;
  int failures = 0;
  const auto takeOne = [&] {
    failures += boxes.front().wait().error ? 1 : 0;
    boxes.pop_front();
  };
  for (int sent = 0; sent < kRequests; ++sent) {
    if (boxes.size() == kInFlight) takeOne();
    session->dataTask(URLRequest(url("/small")), boxes.emplace_back().handler())->resume();
  }
  while (!boxes.empty()) takeOne();
  EXPECT_EQ(failures, 0);
}

TEST_P(NginxTest, SpeaksHTTP11WhenHTTP2IsNotAllowed) {
  URLSessionConfiguration configuration;
  configuration.allowsHTTP2 = false;
  const auto other = URLSession::create(configuration, delegate);
  EXPECT_EQ(load(*other, URLRequest(url("/who"))).response->httpVersion, 11);
}

TEST_P(NginxTest, LargeBodiesAvoidHTTP2) {
  EXPECT_EQ(load(*session, URLRequest(url("/who"))).response->httpVersion, 20);
  URLRequest request(url("/who"));
  request.setMethod("POST");
  request.setBody(Data::fromText(std::string((1U << 20) + 1, 'x')));
  const Outcome outcome = load(*session, request);
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->httpVersion, 11);
}

TEST_P(NginxTest, LargeBodiesKeepToTheLimitOfConnections) {
  // While this one runs, it is known that the host multiplexes.
  const auto slow = session->dataTask(URLRequest(url("/slow")));
  slow->resume();
  delegate->waitForBytes(1);
  ASSERT_EQ(slow->response()->httpVersion, 20);
  URLRequest request(url("/connection"));
  request.setMethod("POST");
  request.setBody(Data::fromText(std::string((1U << 20) + 1, 'x')));
  std::vector<OutcomeBox> boxes(40);
  for (auto& box : boxes) session->dataTask(request, box.handler())->resume();
  std::set<std::string> connections;
  for (auto& box : boxes) connections.insert(box.wait().text());
  EXPECT_LT(connections.size(),
            static_cast<std::size_t>(session->configuration().maximumConnectionsPerHost));
  slow->cancel();
}

TEST_P(NginxTest, CompressedBodiesComeOutPlain) {
  const Outcome outcome = load(*session, URLRequest(url("/small")));
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->headers.find("Content-Encoding"), "gzip");
  EXPECT_EQ(outcome.text(), std::string(2000, 's'));
}

TEST_P(NginxTest, AMissingClientCertificateStaysAnHTTPAnswer) {
  delegate->credential = nullptr;
  const Outcome outcome = load(*session, URLRequest(url("/who")));
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->httpStatusCode, 400);
}

TEST_P(NginxTest, AConnectionThatItClosesWithoutAnAnswerIsNoRefusal) {
  EXPECT_EQ(load(*session, URLRequest(url("/silent"))).code(), NSURLErrorNetworkConnectionLost);
  URLSessionConfiguration configuration;
  configuration.allowsHTTP2 = false;
  const auto other = URLSession::create(configuration, delegate);
  EXPECT_EQ(load(*other, URLRequest(url("/silent"))).code(), NSURLErrorNetworkConnectionLost);
}

TEST_P(NginxTest, ManyRequestsShareOneConnection) {
  std::vector<OutcomeBox> boxes(50);  // fewer than the streams of one connection
  for (auto& box : boxes) session->dataTask(URLRequest(url("/large")), box.handler())->resume();
  for (auto& box : boxes) EXPECT_EQ(box.wait().text().size(), kLargeSize);
  EXPECT_EQ(delegate->trustChallenges(), 1);
}

INSTANTIATE_TEST_SUITE_P(Protocols, NginxTest, ::testing::Values("TLSv1.2", "TLSv1.3"),
                         [](const auto& protocol) {
                           return protocol.index == 0 ? "TLS12" : "TLS13";
                         });

}  // namespace
}  // namespace kvl::testing
