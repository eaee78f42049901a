// The certificate authority that the development notary and service share.
#pragma once

#include "devservice/Certificates.h"
#include "devservice/OpenSSLPointers.h"
#include "devservice/StateDirectory.h"

#include <string>
#include <vector>

namespace devservice {

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
