// The OpenSSL objects inside keys and certificates, their encodings, and owners for such objects.
#pragma once

#include "platform/security/WipedBytes.h"

#include <local/platform/Security.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/encoder.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace kvl::security {

struct OpenSSLDeleter {
  void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
  void operator()(EVP_PKEY_CTX* context) const noexcept { EVP_PKEY_CTX_free(context); }
  void operator()(OSSL_ENCODER_CTX* encoder) const noexcept { OSSL_ENCODER_CTX_free(encoder); }
  void operator()(PKCS8_PRIV_KEY_INFO* info) const noexcept { PKCS8_PRIV_KEY_INFO_free(info); }
  void operator()(X509* certificate) const noexcept { X509_free(certificate); }
  void operator()(X509_STORE* store) const noexcept { X509_STORE_free(store); }
  void operator()(X509_STORE_CTX* context) const noexcept { X509_STORE_CTX_free(context); }
  void operator()(BIO* bio) const noexcept { BIO_free_all(bio); }
  void operator()(BN_CTX* context) const noexcept { BN_CTX_free(context); }
  void operator()(BIGNUM* number) const noexcept { BN_clear_free(number); }
  // Frees the stack and gives up its reference to each certificate.
  void operator()(STACK_OF(X509) * certificates) const noexcept {
    sk_X509_pop_free(certificates, X509_free);
  }
  // A buffer that OpenSSL allocated.
  void operator()(unsigned char* buffer) const noexcept { OPENSSL_free(buffer); }
  void operator()(char* buffer) const noexcept { OPENSSL_free(buffer); }
};

// Owns one OpenSSL object or buffer.
template <class T>
using OpenSSLPtr = std::unique_ptr<T, OpenSSLDeleter>;

// Keeps OpenSSL from taking itself apart at the process's exit, while workers may still use it. It
// works when nobody else in the process was first; called before every first use here.
void keepOpenSSLUntilTheEnd() noexcept;

// Borrowed: valid while the key lives.
[[nodiscard]] EVP_PKEY* nativeKey(const Key& key) noexcept;
// Parsed anew by each call. Null only when memory runs out.
[[nodiscard]] OpenSSLPtr<X509> nativeCertificate(const Certificate& certificate) noexcept;
// In their order, without those that are null. Null only when memory runs out.
[[nodiscard]] OpenSSLPtr<STACK_OF(X509)> nativeCertificates(
    const std::vector<CertificateRef>& certificates);

// All that make or decode: as long as somebody holds a key or certificate, an equal one, by its
// encoding, is the same object.

// Take over one reference. @pre the pointer is not null.
[[nodiscard]] KeyRef makeKey(EVP_PKEY* adopted, Key::Class keyClass);
// Null when it cannot be encoded.
[[nodiscard]] CertificateRef makeCertificate(X509* adopted);

// A private key as PKCS#8 (RFC 5958), a public one as SubjectPublicKeyInfo (RFC 5280), both DER.
// Empty when the key cannot be encoded.
[[nodiscard]] WipedBytes encodeKey(const Key& key);
// Null when the bytes are not exactly one key of that class.
[[nodiscard]] KeyRef decodeKey(std::span<const std::uint8_t> bytes, Key::Class keyClass);

// Null when the bytes are not exactly one DER certificate.
[[nodiscard]] CertificateRef decodeCertificate(std::span<const std::uint8_t> der);

// The text of the oldest error in this thread's OpenSSL queue, which is emptied; never empty.
[[nodiscard]] std::string takeOpenSSLError();

// Drops the errors that OpenSSL queues in this thread during the object's life, so that the next
// user of the queue does not find them.
class ErrorQueueMark {
 public:
  ErrorQueueMark() noexcept;
  ~ErrorQueueMark();
  ErrorQueueMark(const ErrorQueueMark&) = delete;
  ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

}  // namespace kvl::security
