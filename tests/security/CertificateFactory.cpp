#include "tests/security/CertificateFactory.h"

#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace kvltest {
namespace {

using kvl::security::OpenSSLPtr;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  require(extension != nullptr, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

void setTime(ASN1_TIME* time, const std::string& text, long secondsFromNow) {
  if (text.empty()) {
    X509_gmtime_adj(time, secondsFromNow);
  } else {
    require(ASN1_TIME_set_string(time, text.c_str()) == 1, "time");
  }
}

void fillIn(X509* certificate, const CertificatePlan& plan) {
  X509_set_version(certificate, X509_VERSION_3);
  std::uint32_t serial = 0;
  RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial | 1U << 31);
  setTime(X509_getm_notBefore(certificate), plan.notBefore, plan.startsIn);
  setTime(X509_getm_notAfter(certificate), plan.notAfter, plan.endsIn);
  if (!plan.commonName.empty())
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(plan.commonName.c_str()), -1,
                               -1, 0);
}

void addExtensions(X509* certificate, X509* issuer, const CertificatePlan& plan) {
  addExtension(certificate, issuer, NID_basic_constraints,
               plan.isAuthority ? "critical,CA:TRUE" : "critical,CA:FALSE");
  if (plan.isAuthority) addExtension(certificate, issuer, NID_key_usage, "critical,keyCertSign");
  if (!plan.isAuthority && !plan.extendedKeyUsage.empty())
    addExtension(certificate, issuer, NID_ext_key_usage, plan.extendedKeyUsage);
  if (!plan.alternativeNames.empty())
    addExtension(certificate, issuer, NID_subject_alt_name, plan.alternativeNames);
}

void forge(X509* certificate) {
  const ASN1_BIT_STRING* signature = nullptr;
  X509_get0_signature(&signature, nullptr, certificate);
  // The last byte belongs to a number, so the encoding stays valid.
  signature->data[signature->length - 1] ^= 1;
}

}  // namespace

kvl::CertificateRef Issued::reference() const {
  X509_up_ref(certificate.get());
  return kvl::security::makeCertificate(certificate.get());
}

kvl::Data Issued::der() const {
  return reference()->encoded();
}

std::string Issued::pem() const {
  return reference()->pem();
}

OpenSSLPtr<EVP_PKEY> ellipticKey() {
  return OpenSSLPtr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

OpenSSLPtr<EVP_PKEY> rsaKey(unsigned int bits, unsigned int primes) {
  const OpenSSLPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  EVP_PKEY* key = nullptr;
  require(EVP_PKEY_keygen_init(context.get()) == 1 &&
              EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) == 1 &&
              EVP_PKEY_CTX_set_rsa_keygen_primes(context.get(), static_cast<int>(primes)) == 1 &&
              EVP_PKEY_generate(context.get(), &key) == 1,
          "an RSA key");
  return OpenSSLPtr<EVP_PKEY>(key);
}

Issued issue(const CertificatePlan& plan, const Issued* issuer, OpenSSLPtr<EVP_PKEY> key) {
  Issued made{OpenSSLPtr<X509>(X509_new()), key ? std::move(key) : ellipticKey()};
  const Issued& signer = issuer == nullptr ? made : *issuer;
  X509* certificate = made.certificate.get();
  fillIn(certificate, plan);
  X509_set_issuer_name(certificate, X509_get_subject_name(signer.certificate.get()));
  X509_set_pubkey(certificate, made.key.get());
  addExtensions(certificate, signer.certificate.get(), plan);
  require(X509_sign(certificate, signer.key.get(), EVP_sha256()) > 0, "sign");
  if (plan.isForged) forge(certificate);
  return made;
}

}  // namespace kvltest
