#include "tests/tools/ServiceFixture.h"

#include "tests/support/FolderWait.h"

#include <filesystem>
#include <fstream>

namespace kvltest {
namespace {

constexpr auto kNotaryName = "korvale.vandrel.local.notary";
constexpr auto kNotaryLog = "notary.log";
constexpr auto kServiceLog = "service.log";
constexpr auto kDocuments = "documents";

int countOf(const std::string& part, const std::string& text) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

}  // namespace

const std::string ServiceTest::kDocumentBytes("\0\xff\r\n\n\xfe tail\0", 12);

void ServiceTest::SetUp() {
  bus_.startKeyring();
  useBus(bus_.address());
  // Here already, so that it can be watched; the service wants it closed to others.
  std::filesystem::create_directory(state());
  std::filesystem::permissions(state(), std::filesystem::perms::owner_all);
  std::filesystem::create_directory(directory.path() / kDocuments);
  std::ofstream(directory.path().string() + "/" + kDocuments + kDocument, std::ios::binary)
      << kDocumentBytes;
  startService();
  startNotary({});
}

void ServiceTest::startService() {
  const std::filesystem::path url = state() + "/service.url";
  std::filesystem::remove(url);
  service_ = ChildProcess(
      {KVLOCAL_SERVICE, "--state", state(), "--documents", directory.path() / kDocuments},
      environmentWith(environment), directory.path() / kServiceLog);
  ASSERT_TRUE(waitForFolder(state(), service_, [&] { return std::filesystem::exists(url); }))
      << url << " did not appear";
}

void ServiceTest::restartService() {
  service_.kill();
  startService();
}

void ServiceTest::startNotary(const Arguments& options) {
  Arguments command{KVLOCAL_NOTARY, "--state", state()};
  command.insert(command.end(), options.begin(), options.end());
  notary_ = ChildProcess(command, environmentWith(environment), directory.path() / kNotaryLog);
  bus_.waitForName(kNotaryName);
}

void ServiceTest::restartNotary(const Arguments& options) {
  notary_.kill();
  startNotary(options);
}

bool ServiceTest::waitForNotaryLog(const std::function<bool(const std::string& log)>& condition) {
  return waitForFolder(directory.path(), notary_, [&] { return condition(notaryLog()); });
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
  return fileText(kNotaryLog);
}
std::string ServiceTest::serviceLog() const {
  return fileText(kServiceLog);
}

}  // namespace kvltest
