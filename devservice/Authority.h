// The certificate authority that the development notary and service share, and the certificates,
// keys and texts that it is made of.
#pragma once

#include "devservice/OpenSSLPointers.h"
#include "devservice/StateDirectory.h"

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace devservice {

struct Validity {
  std::chrono::seconds before;  // how long ago it began; negative: it begins later
  std::chrono::seconds after;   // how long it lasts from now on; negative: it has ended
};

struct Extension {
  int nid;
  std::string value;  // in the notation of OpenSSL's configuration files
};

struct CertificateContent {
  std::string commonName;
  Validity validity;
  std::vector<Extension> extensions;
};

// A version 3 certificate with a random 128-bit serial number. Without an issuer it is self-signed.
// Throws std::runtime_error on failure.
[[nodiscard]] CertificatePtr makeCertificate(const CertificateContent& content, EVP_PKEY* subject,
                                             X509* issuer, EVP_PKEY* issuerKey);

[[nodiscard]] KeyPtr makeKey();

[[nodiscard]] std::string pemText(X509* certificate);
// Unencrypted PKCS#8. The caller keeps it out of logs and wipes it.
[[nodiscard]] std::string pemText(EVP_PKEY* key);
// Null when the text holds none.
[[nodiscard]] CertificatePtr certificateFromPem(std::string_view pem);
[[nodiscard]] KeyPtr keyFromPem(std::string_view pem);

// The oldest of OpenSSL's queued errors as text; the queue is empty afterwards.
[[nodiscard]] std::string takeOpenSSLError();

// The authority's certificate is the anchor that clients get; its key never leaves the state
// directory and this object.
class Authority {
 public:
  // Takes the directory's authority, or makes one when there is none that can be used. Safe against
  // other processes doing the same. Throws std::runtime_error on failure.
  [[nodiscard]] static Authority open(const StateDirectory& state);
  // Makes a new one in place of what there is.
  [[nodiscard]] static Authority replace(const StateDirectory& state);

  [[nodiscard]] X509* certificate() const noexcept { return certificate_.get(); }
  [[nodiscard]] std::string anchorPem() const { return pemText(certificate_.get()); }

  // For the holder of `key`, usable as a TLS client. It begins a little in the past.
  [[nodiscard]] CertificatePtr issueClient(EVP_PKEY* key, const std::string& commonName,
                                           std::chrono::seconds lifetime) const;
  // For a TLS server with these host names and IP addresses.
  [[nodiscard]] CertificatePtr issueServer(EVP_PKEY* key, const std::vector<std::string>& hosts,
                                           Validity validity) const;

 private:
  Authority(CertificatePtr certificate, KeyPtr key)
      : certificate_(std::move(certificate)), key_(std::move(key)) {}
  [[nodiscard]] static Authority make(const StateDirectory& state);

  CertificatePtr certificate_;
  KeyPtr key_;
};

// Clocks of two parties on one machine agree, but a certificate is often used within the second.
inline constexpr std::chrono::seconds kClockTolerance{60};

}  // namespace devservice
