#include "tests/devservice/RecordClient.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace kvltest {
namespace {

constexpr timeval kReadTimeout{60, 0};
constexpr std::size_t kLargestRecord = 16 * 1024;
constexpr std::string_view kLineEnd = "\r\n";

std::uint16_t portOf(const std::string& url) {
  return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
}

int connectTo(std::uint16_t port) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  const int isPrompt = 1;
  setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &isPrompt, sizeof isPrompt);
  setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &kReadTimeout, sizeof kReadTimeout);
  if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(client);
    throw std::runtime_error("the service cannot be reached");
  }
  return client;
}

SSL_CTX* makeContext(const std::filesystem::path& identity) {
  SSL_CTX* context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_load_verify_locations(context, (identity / "anchor.pem").c_str(), nullptr);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  SSL_CTX_use_certificate_chain_file(context, (identity / "client.pem").c_str());
  SSL_CTX_use_PrivateKey_file(context, (identity / "client.key").c_str(), SSL_FILETYPE_PEM);
  return context;
}

}  // namespace

RecordClient::RecordClient(const std::string& url, const std::filesystem::path& identity)
    : socket_(connectTo(portOf(url))),
      context_(makeContext(identity)),
      tls_(SSL_new(context_.get())) {
  SSL_set_fd(tls_.get(), socket_);
  if (SSL_connect(tls_.get()) == 1) return;
  close(socket_);
  throw std::runtime_error("no TLS connection to the service");
}

RecordClient::~RecordClient() {
  close(socket_);
}

std::string RecordClient::get(const std::string& target, const std::string& fields) {
  const std::string request =
      "GET /" + target + " HTTP/1.1\r\nHost: localhost\r\n" + fields + "\r\n";
  SSL_write(tls_.get(), request.data(), static_cast<int>(request.size()));
  return readRecord().value_or("");
}

std::optional<std::string> RecordClient::readRecord() {
  std::string record(kLargestRecord, '\0');
  errno = 0;
  const int count = SSL_read(tls_.get(), record.data(), static_cast<int>(record.size()));
  if (count <= 0) {
    EXPECT_NE(errno, EAGAIN) << "nothing comes";
    return std::nullopt;
  }
  record.resize(static_cast<std::size_t>(count));
  return record;
}

std::string RecordClient::readChunk() {
  const std::string record = readRecord().value_or("");
  std::size_t size = 0;
  const auto [end, error] = std::from_chars(record.data(), record.data() + record.size(), size, 16);
  const auto digits = static_cast<std::size_t>(end - record.data());
  const std::string content =
      record.substr(std::min(digits + kLineEnd.size(), record.size()), size);
  const std::string whole =
      record.substr(0, digits) + std::string(kLineEnd) + content + std::string(kLineEnd);
  EXPECT_EQ(error, std::errc());
  EXPECT_EQ(record, whole);
  return content;
}

std::vector<std::string> RecordClient::readChunks() {
  std::vector<std::string> chunks;
  for (std::string chunk = readChunk(); !chunk.empty(); chunk = readChunk())
    chunks.push_back(std::move(chunk));
  return chunks;
}

}  // namespace kvltest
