#include "bench/RequestWorld.h"

#include "bench/Contest.h"
#include "bench/TestFiles.h"
#include "tests/support/FreePort.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace kvlbench {
namespace {

constexpr std::size_t kSizes[] = {1024, 100 * 1024};

constexpr auto kSettings = R"(
  access_log off;
  default_type application/octet-stream;
  open_file_cache max=16;
  keepalive_timeout 1h;
  keepalive_requests 1000000000;
  root www;
  ssl_certificate server.pem;
  ssl_certificate_key server-key.pem;
  ssl_client_certificate authority.pem;
  ssl_verify_client on;
  ssl_protocols TLSv1.3;
  ssl_session_cache off;
  ssl_session_tickets off;
  server { listen unix:status.sock; keepalive_timeout 0; location / { stub_status; } }
)";

std::string serverAt(std::uint16_t port, const std::string& more) {
  return "server { listen 127.0.0.1:" + std::to_string(port) + " ssl backlog=1024" + more + "; }\n";
}

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string answerOf(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  constexpr std::string_view kQuestion = "GET / HTTP/1.0\r\n\r\n";
  std::string answer;
  if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      ::write(socket, kQuestion.data(), kQuestion.size()) > 0) {
    char room[1024];
    for (ssize_t size = 0; (size = read(socket, room, sizeof room)) > 0;)
      answer.append(room, static_cast<std::size_t>(size));
  }
  close(socket);
  return answer;
}

}  // namespace

RequestWorld::RequestWorld()
    : nginx_((useServerCore(), TestFiles(folder_.path()), folder_.path()),
             [this](std::uint16_t port) { return configuration(port); }) {
  useClientCore();
}

std::string RequestWorld::configuration(std::uint16_t port) {
  const auto files = folder_.path() / "www";
  std::filesystem::create_directories(files);
  for (const std::size_t size : kSizes) write(files / std::to_string(size), std::string(size, 'x'));
  // nginx cannot say which port it got; this one is tried together with the other.
  http2Port_ = kvltest::freePort();
  std::string settings = kSettings;
  const std::string socket = "unix:" + (folder_.path() / "status.sock").string();
  settings.replace(settings.find("unix:status.sock"), 16, socket);
  return settings + serverAt(port, "") + serverAt(http2Port_, " http2");
}

std::vector<std::string> RequestWorld::arguments(int httpVersion) const {
  return {"--folder", folder_.path().string(),
          "--http",   std::to_string(httpVersion),
          "--port",   std::to_string(httpVersion == 2 ? http2Port_ : nginx_.port())};
}

std::size_t RequestWorld::acceptedConnections() {
  const std::string text = answerOf(folder_.path() / "status.sock");
  constexpr std::string_view kBefore = "requests\n";
  const auto begin = text.find(kBefore);
  if (begin == std::string::npos) throw std::runtime_error("nginx does not count");
  return std::stoul(text.substr(begin + kBefore.size())) - ++asked_;
}

}  // namespace kvlbench
