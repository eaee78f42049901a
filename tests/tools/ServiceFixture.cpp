#include "tests/tools/ServiceFixture.h"

#include "tests/support/FolderWait.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace kvltest {
namespace {

constexpr auto kNotaryName = "korvale.vandrel.local.notary";
constexpr auto kNotaryLog = "notary.log";
constexpr auto kServiceLog = "service.log";
constexpr auto kDocuments = "documents";

// What all tests share.
struct World {
  World() {
    bus.startKeyring();
    // Here already, so that it can be watched; the service wants it closed to others.
    std::filesystem::create_directory(state());
    std::filesystem::permissions(state(), std::filesystem::perms::owner_all);
  }
  [[nodiscard]] std::filesystem::path state() const { return bus.directory() / "state"; }
  [[nodiscard]] std::filesystem::path notaryLog() const { return bus.directory() / kNotaryLog; }

  PrivateBus bus;
  ChildProcess notary;
  bool hasUsualNotary = false;
};

std::unique_ptr<World> sharedWorld;

World& world() {
  if (!sharedWorld) sharedWorld = std::make_unique<World>();
  return *sharedWorld;
}

class WorldsEnd : public testing::Environment {
 public:
  void TearDown() override { sharedWorld.reset(); }
};
[[maybe_unused]] const auto* const worldsEnd = testing::AddGlobalTestEnvironment(new WorldsEnd);

std::string textOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int countOf(const std::string& part, const std::string& text) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

const std::string ServiceTest::kDocumentBytes("\0\xff\r\n\n\xfe tail\0", 12);

void ServiceTest::SetUp() {
  useBus(busAddress());
  std::filesystem::create_directory(directory.path() / kDocuments);
  std::ofstream(directory.path().string() + "/" + kDocuments + kDocument, std::ios::binary)
      << kDocumentBytes;
  startService();
  if (!world().hasUsualNotary) restartNotary({});
  notaryLogStart_ = textOf(world().notaryLog()).size();
}

const std::string& ServiceTest::busAddress() {
  return world().bus.address();
}

void ServiceTest::startService() {
  const std::filesystem::path url = world().state() / "service.url";
  std::filesystem::remove(url);
  service_ = ChildProcess(
      {KVLOCAL_SERVICE, "--state", world().state(), "--documents", directory.path() / kDocuments},
      environmentWith(environment), directory.path() / kServiceLog);
  ASSERT_TRUE(
      waitForFolder(world().state(), service_, [&] { return std::filesystem::exists(url); }))
      << url << " did not appear";
}

void ServiceTest::restartService() {
  service_.kill();
  startService();
}

void ServiceTest::startNotary(const Arguments& options) {
  Arguments command{KVLOCAL_NOTARY, "--state", world().state()};
  command.insert(command.end(), options.begin(), options.end());
  world().notary = ChildProcess(command, environmentWith(environment), world().notaryLog());
  world().bus.waitForName(kNotaryName);
  world().hasUsualNotary = options.empty();
}

void ServiceTest::stopNotary() {
  world().notary.kill();
  world().hasUsualNotary = false;
}

void ServiceTest::restartNotary(const Arguments& options) {
  stopNotary();
  startNotary(options);
}

bool ServiceTest::waitForNotaryLog(const std::function<bool(const std::string& log)>& condition) {
  return waitForFolder(world().bus.directory(), world().notary,
                       [&] { return condition(notaryLog()); });
}

bool ServiceTest::waitForServiceLog(const std::string& part, int times) {
  return waitForFolder(directory.path(), service_,
                       [&] { return countOf(part, serviceLog()) >= times; });
}

std::string ServiceTest::file(const std::string& name, const std::string& bytes) const {
  const std::string path = directory.path() / name;
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

std::string ServiceTest::notaryLog() const {
  return textOf(world().notaryLog()).substr(notaryLogStart_);
}
std::string ServiceTest::serviceLog() const {
  return fileText(kServiceLog);
}

}  // namespace kvltest
