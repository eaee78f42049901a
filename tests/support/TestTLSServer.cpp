#include "tests/support/TestTLSServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace kvl::testing {
namespace {

constexpr int kBacklog = 512;

int selectProtocol(SSL*, const unsigned char** chosen, unsigned char* size,
                   const unsigned char* offered, unsigned int offeredSize, void* protocol) {
  const auto& wanted = *static_cast<const std::string*>(protocol);
  for (unsigned int at = 0; at < offeredSize; at += 1U + offered[at]) {
    *chosen = offered + at + 1;
    *size = offered[at];
    if (std::string_view(reinterpret_cast<const char*>(*chosen), *size) == wanted)
      return SSL_TLSEXT_ERR_OK;
  }
  return SSL_TLSEXT_ERR_NOACK;
}

// `options` must outlive the context.
SSL_CTX* makeContext(const TestServerOptions& options) {
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_set_security_level(context, 0);
  SSL_CTX_set_min_proto_version(context, options.tlsVersion);
  SSL_CTX_set_max_proto_version(context, options.tlsVersion);
  SSL_CTX_use_certificate(context, options.identity->certificate.get());
  SSL_CTX_use_PrivateKey(context, options.identity->key.get());
  for (const TestIdentity* extra : options.extraChain)
    SSL_CTX_add1_chain_cert(context, extra->certificate.get());
  SSL_CTX_set_mode(context, SSL_MODE_NO_AUTO_CHAIN);
  SSL_CTX_set_num_tickets(context, static_cast<std::size_t>(options.tickets));
  constexpr unsigned char kName[] = "test";  // without it no session of a client goes on
  SSL_CTX_set_session_id_context(context, kName, sizeof(kName));
  if (!options.protocol.empty())
    SSL_CTX_set_alpn_select_cb(context, selectProtocol,
                               const_cast<std::string*>(&options.protocol));
  if (options.clientAuthority != nullptr) {
    X509_STORE_add_cert(SSL_CTX_get_cert_store(context),
                        options.clientAuthority->certificate.get());
    const int refusal = options.servesAnyClient ? 0 : SSL_VERIFY_FAIL_IF_NO_PEER_CERT;
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | refusal, nullptr);
  }
  return context;
}

int openListener(std::uint16_t& port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int again = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &again, sizeof(again));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(listener, kBacklog) != 0)
    throw std::runtime_error("no port for a test server");
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(address.sin_port);
  return listener;
}

std::size_t contentLength(const std::string& head) {
  for (const char* name : {"Content-Length: ", "content-length: "}) {
    const auto at = head.find(name);
    if (at != std::string::npos)
      return std::strtoul(head.c_str() + at + std::string_view(name).size(), nullptr, 10);
  }
  return 0;
}

}  // namespace

std::size_t TestPeer::receive(char* buffer, std::size_t size) {
  const auto got = ssl_ != nullptr ? SSL_read(ssl_, buffer, static_cast<int>(size))
                                   : static_cast<int>(recv(socket_, buffer, size, 0));
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

std::string TestPeer::readRequest() {
  constexpr std::string_view kHeadEnd = "\r\n\r\n";
  std::string request;
  char buffer[16384];
  std::size_t whole = std::string::npos;
  while (request.size() < whole) {
    const std::size_t got = receive(buffer, sizeof(buffer));
    if (got == 0) return {};
    request.append(buffer, got);
    const auto end = request.find(kHeadEnd);
    if (whole == std::string::npos && end != std::string::npos)
      whole = end + kHeadEnd.size() + contentLength(request);
  }
  return request;
}

std::string TestPeer::read(std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t filled = 0;
  while (filled < count) {
    const std::size_t got = receive(bytes.data() + filled, count - filled);
    if (got == 0) break;
    filled += got;
  }
  bytes.resize(filled);
  return bytes;
}

bool TestPeer::write(std::string_view bytes) {
  if (ssl_ != nullptr) return SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size())) > 0;
  return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
}

void TestPeer::reset() {
  const linger abrupt{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &abrupt, sizeof(abrupt));
  closeWithoutNotice();
}

void TestPeer::closeWithoutNotice() {
  if (ssl_ != nullptr) SSL_set_quiet_shutdown(ssl_, 1);
}

std::string TestPeer::clientSubject() const {
  X509* certificate = ssl_ == nullptr ? nullptr : SSL_get0_peer_certificate(ssl_);
  if (certificate == nullptr) return {};
  char text[256];
  X509_NAME_oneline(X509_get_subject_name(certificate), text, sizeof(text));
  return text;
}

int TestPeer::furtherClientCertificates() const {
  const auto* chain = ssl_ == nullptr ? nullptr : SSL_get_peer_cert_chain(ssl_);
  return chain == nullptr ? 0 : sk_X509_num(chain);
}

void TestPeer::askForCertificate() {
  SSL_set_verify(ssl_, SSL_VERIFY_PEER, nullptr);
  if (SSL_version(ssl_) == TLS1_3_VERSION) {
    SSL_verify_client_post_handshake(ssl_);
  } else {
    SSL_renegotiate(ssl_);
  }
  SSL_do_handshake(ssl_);
}

TestTLSServer::TestTLSServer(TestServerOptions options, Handler handler)
    : options_(std::move(options)), handler_(std::move(handler)) {
  signal(SIGPIPE, SIG_IGN);
  if (options_.identity != nullptr) {
    context_ = makeContext(options_);
    SSL_CTX_set_msg_callback(context_, &TestTLSServer::noteMessage);
    SSL_CTX_set_msg_callback_arg(context_, this);
  }
  port_ = options_.port;
  listener_ = openListener(port_);
  acceptor_ = std::thread([this] { accept(); });
}

TestTLSServer::~TestTLSServer() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  {
    std::lock_guard lock(mutex_);
    for (const int open : sockets_) shutdown(open, SHUT_RDWR);
  }
  for (auto& thread : threads_) thread.join();
  close(listener_);
  SSL_CTX_free(context_);
}

void TestTLSServer::stopListening() {
  shutdown(listener_, SHUT_RDWR);
}

void TestTLSServer::noteMessage(int isSent, int version, int contentType, const void* bytes,
                                std::size_t size, SSL* /*ssl*/, void* server) {
  const bool isCertificate = isSent == 0 && contentType == SSL3_RT_HANDSHAKE && size > 0 &&
                             *static_cast<const unsigned char*>(bytes) == SSL3_MT_CERTIFICATE;
  // A client without one sends an empty list: its type and the lengths.
  const std::size_t empty = version == TLS1_3_VERSION ? 8 : 7;
  if (isCertificate && size > empty) ++static_cast<TestTLSServer*>(server)->clientCertificates_;
}

void TestTLSServer::accept() {
  for (;;) {
    const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) return;
    // What is written leaves at once: a test may count on it.
    const int now = 1;
    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &now, sizeof(now));
    ++connections_;
    std::lock_guard lock(mutex_);
    sockets_.push_back(accepted);
    threads_.emplace_back([this, accepted] { serve(accepted); });
  }
}

void TestTLSServer::serve(int accepted) {
  SSL* ssl = nullptr;
  bool ready = !options_.dropsConnections;
  if (ready && context_ != nullptr) {
    ssl = SSL_new(context_);
    SSL_set_fd(ssl, accepted);
    ready = SSL_accept(ssl) == 1;
  }
  TestPeer peer(ssl, accepted);
  if (ready) handler_(peer);
  if (ready && ssl != nullptr) SSL_shutdown(ssl);
  SSL_free(ssl);
  std::lock_guard lock(mutex_);
  std::erase(sockets_, accepted);
  close(accepted);
  ++ended_;
}

std::string TestTLSServer::url(std::string_view host, std::string_view path) const {
  std::string text = context_ != nullptr ? "https://" : "http://";
  text.append(host).append(":").append(std::to_string(port_)).append(path);
  return text;
}

std::string httpResponse(std::string_view body, std::string_view status, std::string_view fields) {
  std::string text = "HTTP/1.1 ";
  text.append(status).append("\r\nContent-Length: ").append(std::to_string(body.size()));
  text.append("\r\n").append(fields).append("\r\n").append(body);
  return text;
}

TestTLSServer::Handler answering(std::string response) {
  return [response = std::move(response)](TestPeer& peer) {
    while (!peer.readRequest().empty()) {
      if (!peer.write(response)) return;
    }
  };
}

}  // namespace kvl::testing
