// An HTTP/1.1 server over TLS whose every byte the test decides.
#pragma once

#include "tests/support/TestCertificates.h"

#include <openssl/ssl.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kvl::testing {

// One accepted connection, used by the handler on the connection's own thread.
class TestPeer {
 public:
  TestPeer(SSL* ssl, int socket) noexcept : ssl_(ssl), socket_(socket) {}

  // The next request: its head and, by Content-Length, its body. Empty at the end.
  [[nodiscard]] std::string readRequest();
  // The next `count` bytes; fewer at the end.
  [[nodiscard]] std::string read(std::size_t count);
  // One TLS record (or several for more than 16 KiB). False when the client is gone.
  bool write(std::string_view bytes);
  // Ends with a TCP reset.
  void reset();
  // Ends without the notice that TLS asks for.
  void closeWithoutNotice();
  // The subject of the client's certificate, empty without one.
  [[nodiscard]] std::string clientSubject() const;
  // How many certificates the client sent beside its own.
  [[nodiscard]] int furtherClientCertificates() const;
  // Asks for a client certificate now, long after the handshake: by a renegotiation under TLS 1.2,
  // by a request of its own under TLS 1.3. The answer comes while the next bytes are read.
  void askForCertificate();

 private:
  std::size_t receive(char* buffer, std::size_t size);
  SSL* ssl_;
  int socket_;
};

struct TestServerOptions {
  const TestIdentity* identity = nullptr;  // none: plain HTTP
  std::vector<const TestIdentity*> extraChain = {};
  int tlsVersion = TLS1_3_VERSION;
  // Asks for a client certificate of this authority; refused without one or with another's.
  const TestIdentity* clientAuthority = nullptr;
  // Takes clients without a certificate, too.
  bool servesAnyClient = false;
  // Closes accepted connections at once, before TLS.
  bool dropsConnections = false;
  // What is chosen of the protocols that the client offers (ALPN); empty: none.
  std::string protocol = {};
  // Session tickets under TLS 1.3.
  int tickets = 2;
  // One that was this program's a moment ago; 0: any.
  std::uint16_t port = 0;
};

// Listens on a port of its own on 127.0.0.1. Ends every connection when destroyed.
class TestTLSServer {
 public:
  using Handler = std::function<void(TestPeer&)>;

  TestTLSServer(TestServerOptions options, Handler handler);
  ~TestTLSServer();
  TestTLSServer(const TestTLSServer&) = delete;
  TestTLSServer& operator=(const TestTLSServer&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] std::string url(std::string_view host, std::string_view path = "/") const;
  // Refuses connections from now on.
  void stopListening();
  [[nodiscard]] int connections() const noexcept { return connections_; }
  // How many of them have ended, sockets closed.
  [[nodiscard]] int ended() const noexcept { return ended_; }
  // How many client certificates have come, those of failed handshakes included.
  [[nodiscard]] int clientCertificates() const noexcept { return clientCertificates_; }
  // How many connections went on with the TLS session of an earlier one, which is always granted.
  [[nodiscard]] long resumptions() const { return SSL_CTX_sess_hits(context_); }

 private:
  static void noteMessage(int isSent, int version, int contentType, const void* bytes,
                          std::size_t size, SSL* ssl, void* server);
  void accept();
  void serve(int socket);

  const TestServerOptions options_;
  const Handler handler_;
  SSL_CTX* context_ = nullptr;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<int> connections_ = 0;
  std::atomic<int> ended_ = 0;
  std::atomic<int> clientCertificates_ = 0;
  std::mutex mutex_;
  std::vector<int> sockets_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

// A whole response with a Content-Length.
[[nodiscard]] std::string httpResponse(std::string_view body, std::string_view status = "200 OK",
                                       std::string_view fields = "");
// Answers every request on the connection with the same bytes.
[[nodiscard]] TestTLSServer::Handler answering(std::string response);

}  // namespace kvl::testing
