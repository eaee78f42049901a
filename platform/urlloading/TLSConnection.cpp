#include "platform/urlloading/TLSConnection.h"

#include "platform/core/CallbackBoundary.h"
#include "platform/security/OpenSSLAccess.h"

#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>

namespace kvl::urlloading {
namespace {

using ConnectionSlot = std::shared_ptr<TLSConnection>;

constexpr int kAlertCodeMask = 0xff;
constexpr int kAlertLevelShift = 8;

void freeSlot(void*, void* slot, CRYPTO_EX_DATA*, int, long, void*) {
  delete static_cast<ConnectionSlot*>(slot);
}

int slotIndex() {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, freeSlot);
  return index;
}

Data encoded(X509* certificate) {
  const int length = i2d_X509(certificate, nullptr);
  if (length <= 0) return {};
  Bytes bytes(static_cast<std::size_t>(length));
  unsigned char* end = bytes.data();
  i2d_X509(certificate, &end);
  return Data(std::move(bytes));
}

std::vector<Data> sentChain(X509_STORE_CTX* store) {
  std::vector<Data> chain;
  STACK_OF(X509)* sent = X509_STORE_CTX_get0_untrusted(store);
  for (int i = 0; i < sk_X509_num(sent); ++i) chain.push_back(encoded(sk_X509_value(sent, i)));
  return chain;
}

// The port of one end of a connection; 0 when there is none.
int portOf(int socket, int (*nameOf)(int, sockaddr*, socklen_t*)) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (nameOf(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  // Both families have it in the same place.
  return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

bool usesTrust(const ChallengeAnswer& answer, const TrustRef& trust) {
  return answer.disposition == ChallengeDisposition::useCredential && answer.credential &&
         answer.credential->trust() == trust;
}

bool useIdentity(SSL* ssl, const Credential& credential) {
  const Identity& identity = *credential.identity();
  if (!identity.certificate() || !identity.privateKey()) return false;
  const auto certificate = security::nativeCertificate(*identity.certificate());
  auto others = credential.certificates();
  std::erase(others, identity.certificate());
  const auto extra = security::nativeCertificates(others);
  return certificate && extra &&
         SSL_use_cert_and_key(ssl, certificate.get(), security::nativeKey(*identity.privateKey()),
                              extra.get(), 1) == 1;
}

}  // namespace

ChallengeHandler ChallengeGate::handler() {
  const std::shared_ptr<void> refusalWhenDropped(
      nullptr, [gate = shared_from_this()](void*) { gate->abort(); });
  return [gate = shared_from_this(), refusalWhenDropped](ChallengeDisposition disposition,
                                                         CredentialRef credential) {
    gate->answer(disposition, std::move(credential));
  };
}

void ChallengeGate::answer(ChallengeDisposition disposition, CredentialRef credential) {
  // Read here, on the thread that evaluated: a trust belongs to one thread at a time.
  settle({disposition, std::move(credential), trust_ ? trust_->verifyError() : 0});
}

void ChallengeGate::abort() {
  settle({});
}

void ChallengeGate::settle(ChallengeAnswer answer) {
  const MutexLock lock(mutex_);
  if (answer_) return;
  answer_ = std::move(answer);
  answered_.notifyAll();
}

ChallengeAnswer ChallengeGate::wait(SteadyTime deadline) {
  MutexLock lock(mutex_);
  while (!answer_) {
    if (deadline == SteadyTime::max()) {
      answered_.wait(lock);
    } else if (!answered_.waitUntil(lock, deadline)) {
      break;
    }
  }
  if (!answer_) answer_.emplace().undecided = Undecided::timedOut;
  return *answer_;
}

std::shared_ptr<TLSConnection> TLSConnection::attach(SSL_CTX* context, ChallengeSource& source) {
  auto connection = std::make_shared<TLSConnection>(source);
  auto slot = std::make_unique<ConnectionSlot>(connection);
  if (SSL_CTX_set_ex_data(context, slotIndex(), slot.get()) != 1) return nullptr;
  static_cast<void>(slot.release());
  // Questions are answered while a connection is made, by the exchange that makes it.
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_cert_verify_callback(context, &TLSConnection::verify, connection.get());
  // Not the client_cert_cb: that one cannot supply the certificates that go with the identity.
  SSL_CTX_set_cert_cb(context, &TLSConnection::selectCertificate, connection.get());
  SSL_CTX_set_info_callback(context, &TLSConnection::noteEvent);
  SSL_CTX_set_msg_callback(context, &TLSConnection::noteMessage);
  SSL_CTX_set_msg_callback_arg(context, connection.get());
  // libcurl writes the session's secrets to the file that SSLKEYLOGFILE names unless told here.
  SSL_CTX_set_keylog_callback(context, nullptr);
  return connection;
}

std::shared_ptr<TLSConnection> TLSConnection::of(const SSL* ssl) {
  const auto* slot =
      static_cast<ConnectionSlot*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), slotIndex()));
  return slot == nullptr ? nullptr : *slot;
}

bool TLSConnection::multiplexes(const SSL& ssl) noexcept {
  const unsigned char* name = nullptr;
  unsigned int length = 0;
  SSL_get0_alpn_selected(&ssl, &name, &length);
  return std::string_view(reinterpret_cast<const char*>(name), length) == "h2";
}

void TLSConnection::chooseSocket(const std::vector<int>& sockets, int remotePort,
                                 int localPort) noexcept {
  const auto found = std::ranges::find_if(sockets, [&](int socket) {
    return portOf(socket, getpeername) == remotePort && portOf(socket, getsockname) == localPort;
  });
  socket_ = found == sockets.end() ? -1 : *found;
  input_.setSocket(socket_);
}

bool TLSConnection::hasEnded(const SSL& ssl, bool isShared) noexcept {
  if (isShared && input_.isKnownToLive()) return false;
  // libcurl takes as much of a record as the answer needs, and the rest waits here.
  if (!isShared && SSL_has_pending(&ssl) != 0) return true;
  if (socket_ < 0) return false;
  pollfd state{socket_, POLLIN | POLLRDHUP, 0};
  const bool isSilent = poll(&state, 1, 0) <= 0;
  const bool isAtEnd = (state.revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0;
  if (isShared && !isAtEnd) input_.noteLife();
  // Whatever comes where no answer is due, it is not for the next request.
  return !isSilent && (!isShared || isAtEnd);
}

int TLSConnection::verify(X509_STORE_CTX* store, void* connection) {
  return core::withoutExceptions(
      0, [=] { return static_cast<TLSConnection*>(connection)->verifyChain(store); });
}

int TLSConnection::verifyChain(X509_STORE_CTX* store) {
  ChallengeAnswer answer;
  if (source_ != nullptr) {
    const auto trust = security::makeServerTrust(sentChain(store), source_->peerHost());
    answer = source_->askServerTrust(trust);
    if (usesTrust(answer, trust)) {
      X509_STORE_CTX_set_error(store, X509_V_OK);
      return 1;
    }
  }
  facts_.undecided = answer.undecided;
  if (!answer.undecided) facts_.refusedVerdict = answer.verifyError;
  // The number becomes the alert that the server is told and the text that libcurl reports.
  X509_STORE_CTX_set_error(store, answer.verifyError != X509_V_OK
                                      ? answer.verifyError
                                      : X509_V_ERR_APPLICATION_VERIFICATION);
  return 0;
}

int TLSConnection::selectCertificate(SSL* ssl, void* connection) {
  return core::withoutExceptions(
      0, [=] { return static_cast<TLSConnection*>(connection)->presentIdentity(ssl) ? 1 : 0; });
}

bool TLSConnection::presentIdentity(SSL* ssl) {
  facts_.certificateRequested = true;
  if (source_ == nullptr) return false;
  const ChallengeAnswer answer = source_->askClientCertificate();
  facts_.undecided = answer.undecided;
  if (answer.undecided) return false;
  if (answer.disposition != ChallengeDisposition::useCredential) return true;
  if (!answer.credential || !answer.credential->identity()) return true;
  const security::ErrorQueueMark mark;
  facts_.certificateOffered = useIdentity(ssl, *answer.credential);
  return true;
}

void TLSConnection::noteEvent(const SSL* ssl, int where, int value) {
  const auto* slot =
      static_cast<ConnectionSlot*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), slotIndex()));
  if (slot == nullptr) return;
  TLSFacts& facts = (*slot)->facts_;
  if ((where & SSL_CB_HANDSHAKE_START) != 0) (*slot)->input_.watch(ssl);
  if ((where & SSL_CB_HANDSHAKE_DONE) != 0) {
    facts.handshakeDone = true;
    facts.accepted = facts.accepted || SSL_version(ssl) < TLS1_3_VERSION;
    // In HTTP/2 each stream tells its own end. One that a server breaks off by a frame that is none
    // of HTTP/2 counts as whole all the same when it has no length: libcurl says nothing else.
    if (multiplexes(*ssl))
      (*slot)->input_.share();
    else
      (*slot)->input_.requireNotice();
  }
  const bool isFatalAlert = (where & SSL_CB_READ_ALERT) == SSL_CB_READ_ALERT &&
                            value >> kAlertLevelShift == SSL3_AL_FATAL;
  if (isFatalAlert) facts.alert = value & kAlertCodeMask;
}

void TLSConnection::noteMessage(int isSent, int version, int contentType, const void* bytes,
                                std::size_t size, SSL* /*ssl*/, void* connection) {
  if (isSent != 0 || version != TLS1_3_VERSION || size == 0) return;
  const auto first = *static_cast<const unsigned char*>(bytes);
  const bool isTicket = contentType == SSL3_RT_HANDSHAKE && first == SSL3_MT_NEWSESSION_TICKET;
  const bool isData =
      contentType == SSL3_RT_INNER_CONTENT_TYPE && first == SSL3_RT_APPLICATION_DATA;
  if (isTicket || isData) static_cast<TLSConnection*>(connection)->facts_.accepted = true;
}

}  // namespace kvl::urlloading
