#include "tests/support/MadeCertificate.h"

#include "platform/security/OpenSSLAccess.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cmath>

namespace kvltest {
namespace {

EVP_PKEY* testKey() {
  static const kvl::security::OpenSSLPtr<EVP_PKEY> key(
      EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  return key.get();
}

// Everything but the end of the validity and the signature.
X509* begun() {
  X509* certificate = X509_new();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
  X509_NAME* name = X509_get_subject_name(certificate);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>("made for a test"), -1, -1, 0);
  X509_set_issuer_name(certificate, name);
  ASN1_TIME_set(X509_getm_notBefore(certificate), 0);
  X509_set_pubkey(certificate, testKey());
  return certificate;
}

kvl::CertificateRef finished(X509* certificate) {
  X509_sign(certificate, testKey(), EVP_sha256());
  return kvl::security::makeCertificate(certificate);
}

}  // namespace

kvl::CertificateRef certificateEnding(kvl::Date end) {
  X509* certificate = begun();
  const auto seconds = static_cast<time_t>(std::llround(end.secondsSince1970()));
  ASN1_TIME_set(X509_getm_notAfter(certificate), seconds);
  return finished(certificate);
}

kvl::CertificateRef certificateWithoutReadableEnd() {
  X509* certificate = begun();
  ASN1_STRING_set(X509_getm_notAfter(certificate), "991399999999Z", -1);
  X509_getm_notAfter(certificate)->type = V_ASN1_UTCTIME;
  return finished(certificate);
}

}  // namespace kvltest
