#include "tests/support/PrivateBus.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <openssl/bio.h>

#include <cstdlib>
#include <fstream>

namespace kvl::testing {
namespace {

constexpr const char* kLaxConfiguration = R"(openssl_conf = all
[all]
ssl_conf = tls
[tls]
system_default = lax
[lax]
MinProtocol = TLSv1
CipherString = DEFAULT@SECLEVEL=0
)";

// OpenSSL reads its configuration once in a process.
class TLSVersionTest : public URLSessionTest {
 protected:
  TLSVersionTest() {
    std::ofstream(folder_.path() / "openssl.cnf") << kLaxConfiguration;
    setenv("OPENSSL_CONF", (folder_.path() / "openssl.cnf").c_str(), 1);
  }
  ~TLSVersionTest() override { unsetenv("OPENSSL_CONF"); }

  static bool othersConnect(std::uint16_t port) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const security::OpenSSLPtr<BIO> connection(BIO_new_ssl_connect(context.get()));
    std::string address = "127.0.0.1:" + std::to_string(port);
    BIO_ctrl(connection.get(), BIO_C_SET_CONNECT, 0, address.data());
    return BIO_do_handshake(connection.get()) == 1;
  }
  [[noreturn]] void exitWithVerdict(int version) const {
    const TestTLSServer peer({.identity = &server(), .tlsVersion = version},
                             answering(httpResponse("hello")));
    if (!othersConnect(peer.port())) _exit(2);
    const auto code = load(*session, URLRequest(peer.url("127.0.0.1"))).code();
    _exit(code == NSURLErrorSecureConnectionFailed ? 0 : 1);
  }

 private:
  const kvltest::TemporaryDirectory folder_;
};

TEST_F(TLSVersionTest, OlderOnesAreRefusedWhateverOpenSSLIsConfiguredToAllow) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const int version : {TLS1_VERSION, TLS1_1_VERSION})
    EXPECT_EXIT(exitWithVerdict(version), ::testing::ExitedWithCode(0), "") << version;
}

}  // namespace
}  // namespace kvl::testing
