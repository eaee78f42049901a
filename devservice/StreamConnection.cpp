#include "devservice/StreamConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>

namespace devservice {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr int kForever = -1;
constexpr timeval kNoTimeout{};

void setSendTimeout(int socket, const timeval& timeout) {
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

timeval sendTimeoutOf(int socket) {
  timeval timeout{};
  socklen_t size = sizeof timeout;
  getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, &size);
  return timeout;
}

}  // namespace

StreamConnection::StreamConnection(ServiceState& state, SSL& tls)
    : state_(state), tls_(tls), socket_(SSL_get_fd(&tls)), sendTimeout_(sendTimeoutOf(socket_)) {
  setSendTimeout(socket_, kNoTimeout);
  setHeldTogether(true);
  state_.addStream(socket_);
}

StreamConnection::~StreamConnection() {
  state_.removeStream(socket_);
  setHeldTogether(false);
  setSendTimeout(socket_, sendTimeout_);
}

bool StreamConnection::write(std::string_view bytes) {
  std::size_t written = 0;
  if (SSL_write_ex(&tls_, bytes.data(), bytes.size(), &written) == 1) return true;
  ERR_clear_error();
  return false;
}

bool StreamConnection::writeChunk(std::string_view bytes) {
  std::array<char, 2 * sizeof bytes.size()> size{};
  const auto end = std::to_chars(size.data(), size.data() + size.size(), bytes.size(), 16).ptr;
  frame_.assign(size.data(), end).append(kLineEnd).append(bytes).append(kLineEnd);
  return write(frame_);
}

bool StreamConnection::waitWritable() {
  return waitFor(POLLOUT, kForever) == POLLOUT;
}

bool StreamConnection::pass(std::chrono::milliseconds time) {
  return time.count() == 0 || waitFor(0, static_cast<int>(time.count())) == 0;
}

void StreamConnection::waitForEnd() {
  waitFor(0, kForever);
}

void StreamConnection::setHeldTogether(bool isHeld) {
  const int flag = isHeld ? 1 : 0;
  setsockopt(socket_, IPPROTO_TCP, TCP_CORK, &flag, sizeof flag);
}

short StreamConnection::waitFor(short wanted, int milliseconds) {
  setHeldTogether(false);
  pollfd entry{socket_, static_cast<short>(wanted | POLLRDHUP), 0};
  int count = 0;
  do {
    count = poll(&entry, 1, milliseconds);
  } while (count < 0 && errno == EINTR);
  setHeldTogether(true);
  return entry.revents;
}

}  // namespace devservice
