// What one TLS connection asks the delegate, how it waits for the answers, and what it records.
#pragma once

#include "platform/security/TrustEvaluation.h"
#include "platform/urlloading/InputMeter.h"

#include <local/platform/Credential.h>
#include <local/platform/Mutex.h>

#include <openssl/ssl.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvl::urlloading {

using SteadyTime = std::chrono::steady_clock::time_point;

// Why a challenge ended although nobody decided about the certificates.
enum class Undecided {
  timedOut,  // no answer came in time
  closing,   // the session object is closing, and its delegate has nothing left to judge by
  cancelled  // the exchange that made the connection ends; others must not get it as it is
};

struct ChallengeAnswer {
  ChallengeDisposition disposition = ChallengeDisposition::rejectProtectionSpace;
  CredentialRef credential;
  // What the trust's evaluation had found when the answer came; 0 for a client certificate.
  int verifyError = 0;
  std::optional<Undecided> undecided = std::nullopt;
};

// Where a connection waits for the answer to one challenge. Thread-safe.
class ChallengeGate : public std::enable_shared_from_this<ChallengeGate> {
 public:
  // `trust` is what is asked about, or null for a client certificate.
  explicit ChallengeGate(std::shared_ptr<security::ServerTrust> trust) : trust_(std::move(trust)) {}

  // The handler to give to the delegate. When its last copy goes away unused, that is a refusal.
  [[nodiscard]] ChallengeHandler handler();

  // Ends the wait with a refusal unless an answer came before.
  void abort();

  // Waits for the answer; undecided when none came by the deadline.
  [[nodiscard]] ChallengeAnswer wait(SteadyTime deadline);

 private:
  void answer(ChallengeDisposition disposition, CredentialRef credential);
  void settle(ChallengeAnswer answer);

  const std::shared_ptr<security::ServerTrust> trust_;
  Mutex mutex_;
  Condition answered_;
  std::optional<ChallengeAnswer> answer_ KVL_GUARDED_BY(mutex_);
};

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
  // Set when the handshake was given up because a challenge was not decided.
  std::optional<Undecided> undecided;
  bool certificateRequested = false;
  bool certificateOffered = false;
  // Whether the server went on after it had seen the client's certificate, or that there is none.
  // Under TLS 1.2 it ends the handshake only then. Under TLS 1.3 the client ends it, and what shows
  // is whatever the server sends next: a session ticket or any of the application's bytes.
  bool accepted = false;
  // Whether a response has come over this connection.
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
  // Whether the connection speaks HTTP/2 (RFC 9113, 3.2).
  [[nodiscard]] static bool multiplexes(const SSL& ssl) noexcept;

  explicit TLSConnection(ChallengeSource& source) noexcept : source_(&source) {}

  // From here on every question ends the handshake.
  void detach() noexcept { source_ = nullptr; }
  void markAnswered() noexcept { facts_.answered = true; }
  // The connection's socket is the one of these that is connected from and to these ports.
  void chooseSocket(const std::vector<int>& sockets, int remotePort, int localPort) noexcept;
  // Whether the server has ended a connection on which nothing is under way, or, `isShared`, on
  // which others are. libcurl takes the announcement of the end for a sign of life. Without others
  // a connection that brings anything at all is at its end: it would be the next answer's
  // beginning. With others, one look in a pass will do.
  [[nodiscard]] bool hasEnded(const SSL& ssl, bool isShared) noexcept;
  [[nodiscard]] const TLSFacts& facts() const noexcept { return facts_; }
  // The server has told (GOAWAY) that it has looked at no stream above this one, nor will.
  void noteLastStream(std::uint32_t stream) noexcept {
    lastStream_ = std::min(lastStream_, stream);
  }
  [[nodiscard]] bool hasDeclined(std::uint32_t stream) const noexcept {
    return stream > lastStream_;
  }
  // A request has gone out on this stream. The next one has the next number of a client's streams.
  void noteStream(std::uint32_t stream) noexcept { nextStream_ = stream + 2; }
  // The number of the next stream, for whoever is about to open it; 0 when it is not known.
  [[nodiscard]] std::uint32_t takeNextStream() noexcept { return std::exchange(nextStream_, 0); }
  [[nodiscard]] InputMeter& input() noexcept { return input_; }

 private:
  static int verify(X509_STORE_CTX* store, void* connection);
  static int selectCertificate(SSL* ssl, void* connection);
  static void noteEvent(const SSL* ssl, int where, int value);
  static void noteMessage(int isSent, int version, int contentType, const void* bytes,
                          std::size_t size, SSL* ssl, void* connection);

  [[nodiscard]] int verifyChain(X509_STORE_CTX* store);
  // False when the handshake is to be given up.
  [[nodiscard]] bool presentIdentity(SSL* ssl);

  ChallengeSource* source_;
  int socket_ = -1;  // -1: not known
  TLSFacts facts_;
  std::uint32_t nextStream_ = 0;
  std::uint32_t lastStream_ = std::numeric_limits<std::uint32_t>::max();
  InputMeter input_;
};

}  // namespace kvl::urlloading
