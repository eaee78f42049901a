// Certificates made to measure, by OpenSSL itself.
#pragma once

#include "platform/security/OpenSSLAccess.h"

#include <string>
#include <vector>

namespace kvltest {

struct CertificatePlan {
  std::string commonName = "localhost";
  // As in OpenSSL's configuration: "DNS:localhost,IP:127.0.0.1". Empty: none.
  std::string alternativeNames = {};
  bool isAuthority = false;
  // Seconds from now, unless the texts below are given (as ASN1_TIME_set_string takes them).
  long startsIn = -3600;
  long endsIn = 3600;
  std::string notBefore = {};
  std::string notAfter = {};
  std::string extendedKeyUsage = "serverAuth";
  bool isForged = false;  // the signature does not fit the content
};

// A certificate and the key that it certifies.
struct Issued {
  kvl::security::OpenSSLPtr<X509> certificate;
  kvl::security::OpenSSLPtr<EVP_PKEY> key;

  kvl::CertificateRef reference() const;
  kvl::Data der() const;
  std::string pem() const;
};

kvl::security::OpenSSLPtr<EVP_PKEY> ellipticKey();
kvl::security::OpenSSLPtr<EVP_PKEY> rsaKey(unsigned int bits, unsigned int primes = 2);

// Issued by `issuer`, or by itself when null. Without a key it gets a new elliptic one.
Issued issue(const CertificatePlan& plan, const Issued* issuer = nullptr,
             kvl::security::OpenSSLPtr<EVP_PKEY> key = nullptr);

}  // namespace kvltest
