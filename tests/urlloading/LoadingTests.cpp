#include "tests/urlloading/URLSessionFixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

namespace kvl::testing {
namespace {

class LoadingTest : public URLSessionTest {};

// Answers with the request itself.
void echo(TestPeer& peer) {
  for (;;) {
    const std::string request = peer.readRequest();
    if (request.empty() || !peer.write(httpResponse(request))) return;
  }
}

TEST_F(LoadingTest, AResponseHasStatusFieldsVersionAndURL) {
  const TestTLSServer peer({.identity = &server()},
                           answering("HTTP/1.1 103 Early\r\nX-Early: 1\r\n\r\n" +
                                     httpResponse("hello", "404 Missing", "X-A:  b \r\n")));
  const Outcome outcome = load(*session, URLRequest(peer.url("localhost", "/path")));
  ASSERT_FALSE(outcome.error) << outcome.error->description();
  EXPECT_EQ(outcome.text(), "hello");
  EXPECT_EQ(outcome.response->httpStatusCode, 404);
  EXPECT_EQ(outcome.response->httpVersion, 11);
  EXPECT_EQ(outcome.response->headers.find("x-a"), "b");
  EXPECT_FALSE(outcome.response->headers.find("X-Early"));
  EXPECT_EQ(outcome.response->url.absoluteString(), peer.url("localhost", "/path"));
}

TEST_F(LoadingTest, MethodsBodiesAndFieldsArriveAsTheyWereSet) {
  const TestTLSServer peer({}, echo);
  for (const std::string method : {"GET", "POST", "PUT", "DELETE", "PATCH", "PROPFIND"}) {
    for (const bool withBody : {false, true}) {
      URLRequest request(peer.url("127.0.0.1", "/a/../b?c"));
      request.setMethod(method);
      request.headers().set("X-Empty", "");
      if (withBody) request.setBody(Data::fromText("some body"));
      const std::string sent = load(*session, request).text();
      EXPECT_TRUE(sent.starts_with(method + " /a/../b?c HTTP/1.1\r\n")) << sent;
      EXPECT_EQ(sent.ends_with("\r\n\r\nsome body"), withBody) << sent;
      EXPECT_NE(sent.find("X-Empty:"), std::string::npos) << sent;
      EXPECT_EQ(sent.find("Expect"), std::string::npos) << sent;
      EXPECT_EQ(sent.find("User-Agent"), std::string::npos) << sent;
      EXPECT_EQ(sent.find("Content-Type"), std::string::npos) << sent;
    }
  }
}

TEST_F(LoadingTest, LargeBodiesArriveWhole) {
  const TestTLSServer peer({.identity = &server()}, echo);
  const std::string body(3 << 20, 'x');
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("POST");
  request.setBody(Data::fromText(body));
  EXPECT_TRUE(load(*session, request).text().ends_with("\r\n\r\n" + body));
}

TEST_F(LoadingTest, AHeadRequestHasNoBody) {
  const TestTLSServer peer({}, answering("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n"));
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("HEAD");
  const Outcome outcome = load(*session, request);
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(outcome.text(), "");
}

TEST_F(LoadingTest, AdditionalFieldsGiveWayToTheRequestsOwn) {
  auto configuration = anyPeers();
  configuration.additionalHeaders.set("X-A", "common");
  configuration.additionalHeaders.set("X-B", "common");
  const auto other = URLSession::create(configuration, delegate);
  const TestTLSServer peer({}, echo);
  URLRequest request(peer.url("127.0.0.1"));
  request.headers().set("x-a", "own");
  const std::string sent = load(*other, request).text();
  EXPECT_NE(sent.find("x-a: own\r\n"), std::string::npos) << sent;
  EXPECT_EQ(sent.find("X-A: common"), std::string::npos) << sent;
  EXPECT_NE(sent.find("X-B: common"), std::string::npos) << sent;
}

TEST_F(LoadingTest, CookiesStayInTheirSessionObject) {
  std::atomic<int> served = 0;
  const TestTLSServer peer({}, [&](TestPeer& client) {
    for (;;) {
      const std::string request = client.readRequest();
      if (request.empty()) return;
      client.write(httpResponse(request, "200 OK", ++served == 1 ? "Set-Cookie: a=b\r\n" : ""));
    }
  });
  static_cast<void>(load(*session, URLRequest(peer.url("127.0.0.1"))));
  EXPECT_NE(load(*session, URLRequest(peer.url("127.0.0.1"))).text().find("Cookie: a=b"),
            std::string::npos);
  const auto other = URLSession::create(anyPeers(), delegate);
  EXPECT_EQ(load(*other, URLRequest(peer.url("127.0.0.1"))).text().find("Cookie"),
            std::string::npos);
}

TEST_F(LoadingTest, AHostHasFewCookiesAndTheNewestStay) {
  int next = 0;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    for (;;) {
      const std::string request = client.readRequest();
      std::string fields;
      for (const int end = next + 40; next < end; ++next)
        fields += "Set-Cookie: c" + std::to_string(next) + "=" + std::to_string(next) + "\r\n";
      if (request.empty() || !client.write(httpResponse(request, "200 OK", fields))) return;
    }
  });
  std::string sent;
  for (int i = 0; i < 6; ++i) sent = load(*session, URLRequest(peer.url("127.0.0.1"))).text();
  EXPECT_EQ(std::ranges::count(sent, '='), 50) << sent;
  for (const std::string kept : {"c150=150", "c175=175", "c199=199"})
    EXPECT_NE(sent.find(kept), std::string::npos) << sent;
  EXPECT_EQ(sent.find("c149="), std::string::npos) << sent;
}

TEST_F(LoadingTest, AConnectionIsReusedWithoutNewChallenges) {
  const TestTLSServer peer({.identity = &server(), .clientAuthority = &root()},
                           answering(httpResponse("hello")));
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).code(), 0);
  EXPECT_EQ(peer.connections(), 1);
  EXPECT_EQ(delegate->trustChallenges(), 1);
  EXPECT_EQ(delegate->clientChallengeHosts(), std::vector<std::string>{"127.0.0.1"});
}

TEST_F(LoadingTest, TheClientsCertificateIsSentOnceBesideThoseThatGoWithIt) {
  const TestTLSServer peer(
      {.identity = &server(), .clientAuthority = &root()}, [](TestPeer& client) {
        static_cast<void>(client.readRequest());
        client.write(httpResponse(std::to_string(client.furtherClientCertificates())));
      });
  const auto identity = delegate->credential->identity();
  const CertificateRef own = identity->certificate();
  const CertificateRef other = root().certificateRef();
  const std::pair<std::vector<CertificateRef>, const char*> cases[] = {
      {{}, "0"}, {{own}, "0"}, {{own, other}, "1"}, {{other, nullptr, own}, "1"}};
  for (const auto& [certificates, sent] : cases) {
    delegate->credential =
        std::make_shared<const Credential>(identity, certificates, Credential::Persistence::none);
    const auto loader = URLSession::create(URLSessionConfiguration::ephemeral(), delegate);
    EXPECT_EQ(load(*loader, URLRequest(peer.url("127.0.0.1"))).text(), sent);
  }
}

TEST_F(LoadingTest, BytesOfOnePassComeAsOneChunk) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "3\r\none\r\n3\r\ntwo\r\n5\r\nthree\r\n");
    static_cast<void>(client.readRequest());
  });
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")));
  task->resume();
  delegate->waitForBytes(11);
  EXPECT_EQ(delegate->chunks(), std::vector<std::string>{"onetwothree"});
  task->cancel();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
}

TEST_F(LoadingTest, ASlowDelegateHoldsTheSenderBackAndLosesNothing) {
  constexpr std::size_t kSize = 48U << 20;
  std::string body(kSize, ' ');
  for (std::size_t i = 0; i < kSize; ++i) body[i] = static_cast<char>('a' + (i / 977) % 26);
  std::atomic<std::size_t> sent = 0;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n");
    for (; sent < kSize; sent += 16384) client.write(std::string_view(body).substr(sent, 16384));
  });
  auto configuration = anyPeers();
  configuration.deliveryBufferSize = 64U << 10;
  configuration.timeoutIntervalForRequest = std::chrono::milliseconds(1500);
  const auto other = URLSession::create(configuration, delegate);
  bool first = true;
  std::size_t sentWhileBlocked = 0;
  delegate->onData = [&](const auto&) {
    if (!std::exchange(first, false)) return;
    // Longer than the idle time-out, which must not count while the sender is held back.
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    sentWhileBlocked = sent;
  };
  other->dataTask(URLRequest(peer.url("127.0.0.1")))->resume();
  EXPECT_FALSE(delegate->waitForCompletion());
  EXPECT_LT(sentWhileBlocked, kSize / 2);
  EXPECT_TRUE(delegate->text() == body);
}

TEST_F(LoadingTest, ManyRequestsAtOnceAllComplete) {
  const TestTLSServer peer({.identity = &server(), .clientAuthority = &root()},
                           answering(httpResponse("hello")));
  std::vector<OutcomeBox> boxes(200);
  for (auto& box : boxes)
    session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler())->resume();
  for (auto& box : boxes) EXPECT_EQ(box.wait().text(), "hello");
  EXPECT_LE(peer.connections(), session->configuration().maximumConnectionsPerHost);
}

TEST_F(LoadingTest, TheEnvironmentDoesNotSteer) {
  const auto keyLog =
      std::filesystem::temp_directory_path() / ("kvl-keylog-" + std::to_string(::getpid()));
  for (const char* name : {"http_proxy", "https_proxy", "ALL_PROXY", "all_proxy"})
    ::setenv(name, "http://127.0.0.1:1", 1);
  ::setenv("CURL_CA_BUNDLE", "/nonexistent", 1);
  ::setenv("SSLKEYLOGFILE", keyLog.c_str(), 1);
  const TestTLSServer peer({.identity = &server()}, answering(httpResponse("hello")));
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "hello");
  std::error_code none;
  if (std::filesystem::exists(keyLog)) EXPECT_EQ(std::filesystem::file_size(keyLog, none), 0U);
  std::filesystem::remove(keyLog, none);
}

// A folder of the user's with a password for each host, while it lives.
class HomeWithPasswords {
 public:
  HomeWithPasswords() {
    std::filesystem::create_directory(folder_);
    std::ofstream(folder_ / ".netrc") << "default login user password secret\n";
    setenv("HOME", folder_.c_str(), 1);
  }
  ~HomeWithPasswords() {
    before_ ? setenv("HOME", before_->c_str(), 1) : unsetenv("HOME");
    std::error_code none;
    std::filesystem::remove_all(folder_, none);
  }
  HomeWithPasswords(const HomeWithPasswords&) = delete;
  HomeWithPasswords& operator=(const HomeWithPasswords&) = delete;

 private:
  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("kvl-home-" + std::to_string(::getpid()));
  const std::optional<std::string> before_ =
      getenv("HOME") != nullptr ? std::optional<std::string>(getenv("HOME")) : std::nullopt;
};

TEST_F(LoadingTest, PasswordsOfTheUsersFilesAreNotSent) {
  const HomeWithPasswords home;
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    for (std::string request; !(request = client.readRequest()).empty();) {
      if (!client.write(httpResponse(request))) return;
    }
  });
  const std::string request = load(*session, URLRequest(peer.url("127.0.0.1", "/path"))).text();
  EXPECT_TRUE(request.starts_with("GET /path")) << request;
  EXPECT_EQ(request.find("uthorization"), std::string::npos) << request;
}

}  // namespace
}  // namespace kvl::testing
