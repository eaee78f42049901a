// Other people's tools read the signing request.
#include "platform/environment/Environment.h"
#include "tests/support/PrivateBus.h"

#include <local/KVLNotary.h>
#include <local/platform/HostApplication.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>

namespace {

class RequestToolsTest : public testing::Test {
 protected:
  RequestToolsTest() { kvl::setHostIdentifier("org.example.RequestToolsTest"); }
  ~RequestToolsTest() override { kvl::setHostIdentifier(""); }
};

TEST_F(RequestToolsTest, OpenSSLVerifiesTheRequest) {
  auto environment = std::make_shared<kvl::Environment>();
  environment->keyStore = kvl::security::makeMemoryKeyStore;
  const KVLNotary notary(std::nullopt, environment);
  const kvltest::TemporaryDirectory directory;
  const auto file = directory.path() / "request.pem";
  std::ofstream(file) << *notary.pemCertificateSigningRequest();
  const auto log = directory.path() / "log";
  kvltest::ChildProcess tool({"openssl", "req", "-in", file.string(), "-verify", "-noout", "-text"},
                             kvltest::environmentWith({}), log);
  const int status = tool.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::ifstream stream(log);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_NE(text.find("verify OK"), std::string::npos) << text;
  EXPECT_NE(text.find("sha256WithRSAEncryption"), std::string::npos) << text;
  EXPECT_NE(text.find("2048 bit"), std::string::npos) << text;
}

}  // namespace
