// X.509 certificates of the development authority.
#pragma once

#include "devservice/OpenSSLPointers.h"

#include <chrono>
#include <string>
#include <string_view>
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

// The first of OpenSSL's queued errors, as text; empties the queue.
[[nodiscard]] std::string takeOpenSSLError();

}  // namespace devservice
