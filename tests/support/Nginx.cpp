#include "tests/support/Nginx.h"

#include "tests/support/FolderWait.h"
#include "tests/support/FreePort.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace kvltest {
namespace {

constexpr int kAttempts = 5;
// nginx writes it once it listens.
constexpr auto kProcessFile = "nginx.pid";
constexpr auto kErrorLog = "error.log";
constexpr auto kConfigurationFile = "nginx.conf";

constexpr auto kMainSettings = R"(daemon off;
master_process off;
pid nginx.pid;
error_log error.log info;
events { worker_connections 512; }
http {
  access_log access.log;
  client_body_temp_path body;
  proxy_temp_path proxy;
  fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi;
  scgi_temp_path scgi;
)";

}  // namespace

Nginx::Nginx(std::filesystem::path folder, const Configuration& configuration)
    : folder_(std::move(folder)) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    port_ = freePort();
    if (start(configuration)) return;
  }
  throw std::runtime_error("nginx did not start: " + errorLog());
}

void Nginx::startAgain(const Configuration& configuration) {
  process_.kill();
  if (!start(configuration)) throw std::runtime_error("nginx did not start: " + errorLog());
}

bool Nginx::start(const Configuration& configuration) {
  std::filesystem::remove(folder_ / kProcessFile);
  std::ofstream(folder_ / kConfigurationFile) << kMainSettings << configuration(port_) << "}\n";
  process_ = ChildProcess({"nginx", "-e", kErrorLog, "-p", folder_.string(), "-c",
                           (folder_ / kConfigurationFile).string()},
                          environmentWith({}), folder_ / "nginx.log");
  return waitForFolder(folder_, process_,
                       [this] { return std::filesystem::exists(folder_ / kProcessFile); });
}

std::string Nginx::errorLog() const {
  std::string text;
  for (const auto* name : {kErrorLog, "nginx.log"}) {
    std::ifstream file(folder_ / name);
    text.append(std::istreambuf_iterator<char>(file), {});
  }
  return text;
}

}  // namespace kvltest
