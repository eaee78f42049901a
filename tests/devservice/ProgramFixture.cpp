#include "tests/devservice/ProgramFixture.h"

#include "platform/ipc/BusTransport.h"
#include "tests/devservice/MadeRequest.h"
#include "tests/support/FolderWait.h"

#include <local/platform/Log.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace kvltest {
namespace {

constexpr const char* kNotaryName = "korvale.vandrel.local.notary";

std::string textOf(const kvl::Dictionary& reply, std::string_view key) {
  return std::string(reply[key].string().value_or(""));
}

}  // namespace

CommandResult runCommand(const std::string& command) {
  CommandResult result{-1, {}};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  std::array<char, 4096> block{};
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe))
    result.output.append(block.data(), count);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

void ProgramFixture::SetUpTestSuite() {
  key_ = makeRSAKey();
}
void ProgramFixture::TearDownTestSuite() {
  key_.reset();
}

void ProgramFixture::startNotary(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{KVL_DEVNOTARY, "--state", state().string()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  notary_ = ChildProcess(command, environmentWith({}), bus_.directory() / "notary.log");
  bus_.waitForName(kNotaryName);
}

void ProgramFixture::startService(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{KVL_DEVSERVICE, "--state", state().string()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  service_ = ChildProcess(command, environmentWith({}), bus_.directory() / "service.log");
  ASSERT_TRUE(waitForFolder(state(), service_, [this] { return !serviceURL().empty(); }))
      << readFile(bus_.directory() / "service.log");
}

std::string ProgramFixture::serviceURL() const {
  std::string url = readFile(state() / "service.url");
  if (url.ends_with('\n')) url.pop_back();
  return url;
}

std::shared_ptr<CallRecorder> ProgramFixture::call(const std::optional<std::string>& path,
                                                   const kvl::Dictionary& request) {
  const auto connection = kvl::ipc::makeBusConnection(kNotaryName);
  auto recorder = CallRecorder::create();
  connection->activate();
  recorder->send(*connection, path, request);
  recorder->waitForEnd();
  return recorder;
}

std::shared_ptr<CallRecorder> ProgramFixture::notarise(const std::optional<std::string>& path,
                                                       const std::optional<std::string>& request) {
  return call(path, {{"csr", request.value_or(pemOf(makeRequest(key_.get())))}});
}

kvl::Dictionary ProgramFixture::replyOf(const CallRecorder& recorder) {
  EXPECT_TRUE(recorder.reply().has_value()) << kvl::describe(recorder.channelError());
  return recorder.reply().value_or(kvl::Dictionary{});
}

void ProgramFixture::obtainIdentity() {
  const kvl::Dictionary reply = replyOf(*notarise("/a/host"));
  std::ofstream(bus_.directory() / "anchor.pem") << textOf(reply, "anchor");
  std::ofstream(bus_.directory() / "client.pem") << textOf(reply, "certificate");
  std::ofstream(bus_.directory() / "client.key") << keyText(key_.get());
}

CommandResult ProgramFixture::get(const std::string& path, const std::string& options) const {
  const std::string directory = bus_.directory();
  return runCommand("curl -q --noproxy '*' -sS --path-as-is --cacert " + directory +
                    "/anchor.pem --cert " + directory + "/client.pem --key " + directory +
                    "/client.key " + options + " '" + serviceURL() + path + "'");
}

CommandResult ProgramFixture::getAsStranger(const std::string& path) const {
  return runCommand("curl -q --noproxy '*' -sS --cacert " + bus_.directory().string() +
                    "/anchor.pem '" + serviceURL() + path + "'");
}

}  // namespace kvltest
