#include "tests/faults/servers/ForeignServer.h"

#include "tests/support/FreePort.h"
#include "tests/support/WaitUntil.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace kvl::testing {
namespace {

constexpr int kAttempts = 5;
constexpr auto kLog = "server.log";

bool hasEnded(pid_t process) {
  siginfo_t ended{};
  waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOHANG | WNOWAIT);
  return ended.si_pid == process;
}

template <class Address>
bool accepts(int family, const Address& address) {
  const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected =
      connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(descriptor);
  return connected;
}

bool accepts(const std::string& host, std::uint16_t port) {
  sockaddr_in6 six{};
  if (inet_pton(AF_INET6, host.c_str(), &six.sin6_addr) == 1) {
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    return accepts(AF_INET6, six);
  }
  sockaddr_in four{};
  inet_pton(AF_INET, host.c_str(), &four.sin_addr);
  four.sin_family = AF_INET;
  four.sin_port = htons(port);
  return accepts(AF_INET, four);
}

// Lines of a table of proc(5) for established connections that have this port at their own end.
int establishedIn(const char* table, std::uint16_t port) {
  std::ifstream lines(table);
  int count = 0;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string number;
    std::string local;
    std::string remote;
    std::string state;
    words >> number >> local >> remote >> state;
    const auto colon = local.rfind(':');
    if (state != "01" || colon == std::string::npos) continue;
    if (std::stoul(local.substr(colon + 1), nullptr, 16) == port) ++count;
  }
  return count;
}

}  // namespace

ForeignServer::ForeignServer(ForeignServerOptions options, const TestIdentity& identity,
                             const TestIdentity& clientAuthority)
    : options_(std::move(options)) {
  write("clients.pem", clientAuthority.certificatePEM());
  writeIdentity(identity);
  if (options_.software == Software::nginx) {
    write("stall", std::string(1U << 20, 's'));
    nginx_ = std::make_unique<kvltest::Nginx>(
        folder_.path(), [this](std::uint16_t port) { return nginxConfiguration(port); });
    return;
  }
  if (options_.software == Software::openssl) makeStallingFile();
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    port_ = kvltest::freePort();
    if (start()) return;
  }
  throw std::runtime_error("the server did not start: " + log());
}

ForeignServer::~ForeignServer() {
  if (stall_ >= 0) close(stall_);
}

std::string ForeignServer::url(std::string_view path) const {
  return "https://" + listeningAt(port()) + std::string(path);
}

void ForeignServer::kill() {
  process().kill();
}

void ForeignServer::freeze() {
  process().signal(SIGSTOP);
  // A thread of it may still be at work until the kernel says that all have stopped.
  siginfo_t stopped{};
  waitid(P_PID, static_cast<id_t>(process().id()), &stopped, WSTOPPED);
}

int ForeignServer::connections() const {
  return establishedIn("/proc/self/net/tcp", port()) + establishedIn("/proc/self/net/tcp6", port());
}

void ForeignServer::startAgain(const TestIdentity& identity) {
  writeIdentity(identity);
  if (nginx_) {
    return nginx_->startAgain([this](std::uint16_t port) { return nginxConfiguration(port); });
  }
  process_.kill();
  if (!start()) throw std::runtime_error("the server did not start again: " + log());
}

void ForeignServer::write(const std::string& name, const std::string& content) const {
  std::ofstream(folder_.path() / name, std::ios::binary) << content;
}

void ForeignServer::writeIdentity(const TestIdentity& identity) const {
  write("server.pem", identity.certificatePEM());
  write("server.key", identity.keyPEM());
}

std::string ForeignServer::log() const {
  std::ifstream file(folder_.path() / kLog);
  return {std::istreambuf_iterator<char>(file), {}};
}

// openssl serves files: a pipe that has some bytes and no end is one that stalls.
void ForeignServer::makeStallingFile() {
  for (int number = 0; number < kNumbers; ++number) {
    const auto name = "number=" + std::to_string(number);
    write(name, name);
  }
  const auto path = folder_.path() / "stall";
  constexpr mode_t kOwner = 0600;
  if (mkfifo(path.c_str(), kOwner) != 0) throw std::runtime_error("no pipe");
  stall_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const std::string begun(1U << 16, 's');
  if (::write(stall_, begun.data(), begun.size()) < 0) throw std::runtime_error("no bytes to send");
}

std::string ForeignServer::listeningAt(std::uint16_t port) const {
  const bool isSix = options_.address.find(':') != std::string::npos;
  return (isSix ? "[" + options_.address + "]" : options_.address) + ":" + std::to_string(port);
}

// Bodies are only there for variables where they are handed on, to a second server here.
std::string ForeignServer::nginxConfiguration(std::uint16_t port) const {
  const auto socket = (folder_.path() / "second").string();
  std::filesystem::remove(socket);
  return "server { listen unix:" + socket + R"(; return 200 "$request_method $http_x_body"; }
server { listen )" +
         listeningAt(port) + " ssl http2; ssl_protocols TLSv" + options_.tlsVersion + R"(; root .;
  ssl_certificate server.pem; ssl_certificate_key server.key;
  ssl_client_certificate clients.pem; ssl_verify_client on;
  location /stats { return 200 "$ssl_client_s_dn $ssl_protocol"; }
  location /stall { limit_rate 1000; }
  location /post { proxy_set_header X-Body $request_body; proxy_pass http://unix:)" +
         socket + R"(; }
  location ~ (number=[0-9]+) { return 200 $1; }
}
)";
}

std::vector<std::string> ForeignServer::command() const {
  const auto folder = folder_.path().string();
  const auto& version = options_.tlsVersion;
  switch (options_.software) {
    case Software::openssl:
      return {"env",
              "-C",
              folder,
              "openssl",
              "s_server",
              "-WWW",
              "-accept",
              listeningAt(port_),
              version == "1.2" ? "-tls1_2" : "-tls1_3",
              "-cert",
              "server.pem",
              "-key",
              "server.key",
              "-CAfile",
              "clients.pem",
              "-Verify",
              "1",
              "-verify_return_error"};
    case Software::gnutls:
      return {"env",
              "-C",
              folder,
              "gnutls-serv",
              "--http",
              "--require-client-cert",
              "--verify-client-cert",
              "--x509cafile",
              "clients.pem",
              "--x509certfile",
              "server.pem",
              "--x509keyfile",
              "server.key",
              "--priority",
              "NORMAL:-VERS-ALL:+VERS-TLS" + version,
              "--port",
              std::to_string(port_)};
    default:
      return {KVL_GO_SERVER,
              "-address",
              listeningAt(port_),
              "-folder",
              folder,
              "-tls",
              version,
              std::string("-http2=") + (options_.software == Software::go ? "true" : "false")};
  }
}

bool ForeignServer::start() {
  process_ = kvltest::ChildProcess(command(), kvltest::environmentWith({}), folder_.path() / kLog);
  const bool answered = kvltest::waitUntil(
      [this] { return hasEnded(process_.id()) || accepts(options_.address, port_); });
  return answered && !hasEnded(process_.id());
}

}  // namespace kvl::testing
