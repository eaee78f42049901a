// What one TLS connection asks, is answered and records.
#pragma once

#include "platform/urlloading/ChallengeGate.h"

#include <openssl/ssl.h>

#include <memory>
#include <optional>
#include <string>

namespace kvl::urlloading {

// Answers a connection's questions while it is made, on the I/O thread.
class ChallengeSource {
 public:
  virtual ~ChallengeSource() = default;
  // As the URL names it, an IPv6 address without brackets.
  [[nodiscard]] virtual std::string peerHost() const = 0;
  [[nodiscard]] virtual ChallengeAnswer askServerTrust(
      const std::shared_ptr<security::ServerTrust>& trust) = 0;
  // A refusal without a question when no identity may be presented to this host.
  [[nodiscard]] virtual ChallengeAnswer askClientCertificate() = 0;
};

struct TLSFacts {
  bool handshakeDone = false;
  // Set when the server was refused: the X509_V_ERR_* number, 0 when the evaluation had found no
  // fault or was not made.
  std::optional<int> refusedVerdict;
  bool certificateRequested = false;
  bool certificateOffered = false;
  // Whether a response has come over this connection, so that the server took the certificate.
  bool answered = false;
  // The last fatal alert that the server sent.
  std::optional<int> alert;
};

// Lives in the ex_data of its SSL_CTX, of which libcurl makes one per connection, and with whoever
// else holds it. On the I/O thread only.
class TLSConnection {
 public:
  // Takes the decisions of `context` over. `source` must live until `detach` or the context's end.
  // Null when OpenSSL is out of memory.
  [[nodiscard]] static std::shared_ptr<TLSConnection> attach(SSL_CTX* context,
                                                             ChallengeSource& source);
  // The state of the connection, or null for one that was not attached.
  [[nodiscard]] static std::shared_ptr<TLSConnection> of(const SSL* ssl);

  explicit TLSConnection(ChallengeSource& source) noexcept : source_(&source) {}

  // From here on every question is answered with a refusal.
  void detach() noexcept { source_ = nullptr; }
  void markAnswered() noexcept { facts_.answered = true; }
  [[nodiscard]] const TLSFacts& facts() const noexcept { return facts_; }

 private:
  static int verify(X509_STORE_CTX* store, void* connection);
  static int selectCertificate(SSL* ssl, void* connection);
  static void noteEvent(const SSL* ssl, int where, int value);

  [[nodiscard]] int judge(X509_STORE_CTX* store);
  void present(SSL* ssl);

  ChallengeSource* source_;
  TLSFacts facts_;
};

}  // namespace kvl::urlloading
