// nginx requires client certificates of the notary's authority: a server that nobody here wrote.
#include "tests/integration/LocalService.h"
#include "tests/integration/ServerFiles.h"
#include "tests/support/Nginx.h"

#include <fstream>
#include <optional>

namespace {

using namespace kvltest;

struct Variant {
  const char* name;
  const char* protocol;  // for ssl_protocols
  bool http2;
};

constexpr const char* kConfiguration = R"(
  types { application/json json; }
  server {
    listen 127.0.0.1:%@ ssl%@;
    %@
    ssl_protocols %@;
    location /base/identity { return 200 "$ssl_protocol $server_protocol $ssl_client_s_dn"; }
    location / { root documents; }
  }
)";

class NginxTest : public LocalService, public testing::WithParamInterface<Variant> {
 protected:
  void SetUp() override {
    const auto documents = bus.directory() / "documents/base";
    std::filesystem::create_directories(documents);
    std::ofstream(documents / "document.json") << R"({"name":"a document"})";
    writeServerFiles(stateDirectory(), bus.directory());
    nginx_.emplace(bus.directory(), [](std::uint16_t port) {
      return kvl::format(kConfiguration, port, GetParam().http2 ? " http2" : "",
                         kServerCertificates, GetParam().protocol);
    });
    offerNotary("--url https://127.0.0.1:" + std::to_string(nginx_->port()) + "/base/");
  }

 private:
  std::optional<Nginx> nginx_;
};

TEST_P(NginxTest, FetchesDocumentsWithTheIdentity) {
  establish();
  const auto reply = get("document.json");
  ASSERT_FALSE(reply.error) << reply.error->description();
  EXPECT_EQ(reply.status(), 200);
  EXPECT_EQ(reply.body(), R"({"name":"a document"})");
  EXPECT_EQ(reply.response->headers.find("content-type"), "application/json");
}

TEST_P(NginxTest, SeesProtocolAndIdentity) {
  establish();
  const auto reply = get("identity");
  ASSERT_FALSE(reply.error) << reply.error->description();
  const std::string body(reply.body());
  EXPECT_NE(body.find(GetParam().http2 ? "HTTP/2.0" : "HTTP/1.1"), std::string::npos) << body;
  EXPECT_TRUE(body.starts_with(GetParam().protocol)) << body;
  EXPECT_NE(body.find("CN="), std::string::npos) << body;
  EXPECT_EQ(reply.response->httpVersion, GetParam().http2 ? 20 : 11);
}

INSTANTIATE_TEST_SUITE_P(Variants, NginxTest,
                         testing::Values(Variant{"TLS12HTTP1", "TLSv1.2", false},
                                         Variant{"TLS12HTTP2", "TLSv1.2", true},
                                         Variant{"TLS13HTTP1", "TLSv1.3", false},
                                         Variant{"TLS13HTTP2", "TLSv1.3", true}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
