#include "tests/devservice/ProgramFixture.h"
#include "tests/devservice/RecordClient.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace kvltest {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ServiceProgramTest : public ProgramFixture {
 protected:
  void start(const std::vector<std::string>& arguments = {}) {
    startNotary();
    startService(arguments);
    obtainIdentity();
  }
};

TEST_F(ServiceProgramTest, ClientWithACertificateIsServed) {
  start();
  const CommandResult status = get("status");
  EXPECT_EQ(status.status, 0) << status.output;
  EXPECT_THAT(status.output, StartsWith("{\"service\":\"kvlocal-devservice\",\"startedAt\":\"20"));
  EXPECT_THAT(status.output, HasSubstr("\"client\":\"CN=kvlocal client (/a/host)\""));
}

TEST_F(ServiceProgramTest, ClientWithoutACertificateIsRefused) {
  start();
  const CommandResult refused = getAsStranger("status");
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.output, Not(HasSubstr("kvlocal-devservice\"")));
}

TEST_F(ServiceProgramTest, ClientOfAnotherAuthorityIsRefused) {
  start();
  notary_.kill();
  const std::string anchor = readFile(bus_.directory() / "anchor.pem");
  startNotary({"--new-ca"});
  obtainIdentity();
  std::ofstream(bus_.directory() / "anchor.pem") << anchor;
  EXPECT_NE(get("status").status, 0);
}

TEST_F(ServiceProgramTest, OldProtocolVersionIsRefused) {
  start();
  EXPECT_NE(get("status", "--tls-max 1.1").status, 0);
  EXPECT_EQ(get("status", "--tls-max 1.2").status, 0);
}

TEST_F(ServiceProgramTest, EchoTellsWhatArrived) {
  start();
  const CommandResult text = get("echo?a=1&b=%20", "-X PUT -H 'X-Test: yes' --data-raw 'a\"b'");
  EXPECT_THAT(text.output,
              HasSubstr("\"method\":\"PUT\",\"path\":\"/echo\",\"query\":\"a=1&b=%20\""));
  EXPECT_THAT(text.output, HasSubstr("\"X-Test\":\"yes\""));
  EXPECT_THAT(text.output, HasSubstr("\"body\":\"a\\\"b\""));
  EXPECT_THAT(text.output, HasSubstr("\"issuer\":\"CN=kvlocal development authority\""));
  std::ofstream(bus_.directory() / "bytes") << '\xff' << '\x01';
  const CommandResult binary =
      get("echo", "-H 'Content-Type: application/octet-stream' --data-binary @" +
                      (bus_.directory() / "bytes").string());
  EXPECT_THAT(binary.output, HasSubstr("\"bodyBase64\":\"/wE=\""));
}

TEST_F(ServiceProgramTest, TransferRoutes) {
  start();
  const std::string code = "-o /dev/null -w '%{http_code} %{size_download} %{redirect_url}'";
  EXPECT_EQ(get("code?status=404", code).output, "404 14 ");
  EXPECT_EQ(get("code?status=9", code).output.substr(0, 3), "400");
  EXPECT_EQ(get("bytes?count=200000", code).output, "200 200000 ");
  EXPECT_EQ(get("bytes?count=0", code).output, "200 0 ");
  EXPECT_EQ(get("redirect?to=/status", code).output, "302 0 " + serviceURL() + "status");
  EXPECT_EQ(get("slow?ms=1").output, "{\"waited\":1}");
  EXPECT_EQ(get("nothing", code).output.substr(0, 3), "404");
  constexpr int kPartialFile = 18;
  EXPECT_EQ(get("reset").status, kPartialFile);
}

TEST_F(ServiceProgramTest, DocumentsAreServedAndNothingOutside) {
  const auto documents = bus_.directory() / "documents";
  std::filesystem::create_directories(documents / "inner");
  std::ofstream(documents / "menu.json") << "{\"m\":1}";
  std::ofstream(documents / "inner" / "text.txt") << "plain";
  std::ofstream(bus_.directory() / "secret") << "secret";
  std::filesystem::create_symlink(bus_.directory() / "secret", documents / "link");
  start({"--documents", documents.string()});
  EXPECT_EQ(get("menu.json", "-w ' %{content_type}'").output, "{\"m\":1} application/json");
  EXPECT_EQ(get("menu").output, "{\"m\":1}");
  EXPECT_EQ(get("inner/text.txt").output, "plain");
  EXPECT_THAT(get("status").output, HasSubstr("kvlocal-devservice"));
  for (const char* path : {"../secret", "inner/../../secret", "..%2fsecret", "%2e%2e/secret",
                           "link", "/../secret", "inner", ""}) {
    SCOPED_TRACE(path);
    const CommandResult result = get(path, "-w '%{http_code}'");
    EXPECT_THAT(result.output, Not(HasSubstr("secret")));
    EXPECT_THAT(result.output, HasSubstr("404"));
  }
}

TEST_F(ServiceProgramTest, ServerCertificateCanBeWrongOnPurpose) {
  constexpr int kPeerFailedVerification = 60;
  start({"--expired"});
  EXPECT_EQ(get("status").status, kPeerFailedVerification);
  service_.kill();
  std::filesystem::remove(state() / "service.url");
  startService({"--server-name", "other.example"});
  EXPECT_EQ(get("status").status, kPeerFailedVerification);
}

TEST_F(ServiceProgramTest, SignalEndsItCleanly) {
  start();
  ASSERT_EQ(get("status").status, 0);
  service_.signal(SIGTERM);
  const int status = service_.wait();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_FALSE(std::filesystem::exists(state() / "service.url"));
}

TEST_F(ServiceProgramTest, SignalEndsItAtOnceThoughAConnectionIsKeptOpen) {
  constexpr std::chrono::seconds kKeptOpen{60};
  start();
  RecordClient client(serviceURL(), bus_.directory());
  EXPECT_THAT(client.get("status"), StartsWith("HTTP/1.1 200 "));
  // Meanwhile the service has begun to wait for this connection's next request.
  EXPECT_EQ(get("status").status, 0);
  const auto begin = std::chrono::steady_clock::now();
  service_.signal(SIGTERM);
  EXPECT_EQ(service_.wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kKeptOpen / 2);
}

}  // namespace
}  // namespace kvltest
