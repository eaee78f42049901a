// Certificates for tests, made when they are needed.
#pragma once

#include "platform/security/OpenSSLAccess.h"

#include <local/platform/Credential.h>

#include <string>
#include <vector>

namespace kvl::testing {

// A key with a certificate.
struct TestIdentity {
  security::OpenSSLPtr<EVP_PKEY> key;
  security::OpenSSLPtr<X509> certificate;

  [[nodiscard]] CertificateRef certificateRef() const;
  [[nodiscard]] IdentityRef identity() const;
  [[nodiscard]] std::string certificatePEM() const;
  [[nodiscard]] std::string keyPEM() const;
};

struct CertificateOptions {
  std::string commonName = "test";
  std::string subjectAltName = "DNS:localhost,IP:127.0.0.1,IP:::1";
  std::string extendedKeyUsage = "serverAuth,clientAuth";
  bool isAuthority = false;
  // Days from now.
  int validFrom = -1;
  int validTo = 30;
  int rsaBits = 2048;
};

// Signed by `issuer`, or by itself without one.
[[nodiscard]] TestIdentity makeTestIdentity(const CertificateOptions& options,
                                            const TestIdentity* issuer = nullptr);
[[nodiscard]] TestIdentity makeTestAuthority(std::string commonName = "test root",
                                             int validFrom = -10, int validTo = 30);
// Damages the signature of the certificate.
[[nodiscard]] TestIdentity withForgedSignature(const TestIdentity& original);

}  // namespace kvl::testing
