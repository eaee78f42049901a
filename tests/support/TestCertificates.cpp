#include "tests/support/TestCertificates.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

namespace kvl::testing {
namespace {

constexpr long kSecondsPerDay = 86400;

// Making RSA keys is slow, and tests only need a few different ones.
EVP_PKEY* sharedKey(int bits, std::size_t number) {
  static std::mutex mutex;
  static auto* const keys = new std::map<std::pair<int, std::size_t>, EVP_PKEY*>;
  std::lock_guard lock(mutex);
  EVP_PKEY*& key = (*keys)[{bits, number}];
  if (key == nullptr) key = EVP_RSA_gen(static_cast<unsigned>(bits));
  EVP_PKEY_up_ref(key);
  return key;
}

std::size_t nextKeyNumber() {
  constexpr std::size_t kKeys = 4;
  static std::atomic<std::size_t> next = 0;
  return next++ % kKeys;
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  if (value.empty()) return;
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

std::string contentOf(BIO* memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory, &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

long nextSerial() {
  static std::atomic<long> next = 1000;
  return ++next;
}

}  // namespace

TestIdentity makeTestIdentity(const CertificateOptions& options, const TestIdentity* issuer) {
  TestIdentity made{security::OpenSSLPtr<EVP_PKEY>(sharedKey(options.rsaBits, nextKeyNumber())),
                    security::OpenSSLPtr<X509>(X509_new())};
  X509* certificate = made.certificate.get();
  X509* signer = issuer == nullptr ? certificate : issuer->certificate.get();
  X509_set_version(certificate, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), nextSerial());
  X509_gmtime_adj(X509_getm_notBefore(certificate), options.validFrom * kSecondsPerDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate), options.validTo * kSecondsPerDay);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(options.commonName.c_str()), -1,
                             -1, 0);
  X509_set_issuer_name(certificate, X509_get_subject_name(signer));
  addExtension(certificate, signer, NID_basic_constraints,
               options.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
  if (!options.isAuthority) {
    addExtension(certificate, signer, NID_subject_alt_name, options.subjectAltName);
    addExtension(certificate, signer, NID_ext_key_usage, options.extendedKeyUsage);
  }
  X509_sign(certificate, issuer == nullptr ? made.key.get() : issuer->key.get(), EVP_sha256());
  return made;
}

TestIdentity makeTestAuthority(std::string commonName, int validFrom, int validTo) {
  return makeTestIdentity({.commonName = std::move(commonName),
                           .isAuthority = true,
                           .validFrom = validFrom,
                           .validTo = validTo});
}

TestIdentity withForgedSignature(const TestIdentity& original) {
  unsigned char* encoded = nullptr;
  const int size = i2d_X509(original.certificate.get(), &encoded);
  encoded[size - 1] ^= 1U;
  const unsigned char* cursor = encoded;
  X509* forged = d2i_X509(nullptr, &cursor, size);
  OPENSSL_free(encoded);
  EVP_PKEY_up_ref(original.key.get());
  return {security::OpenSSLPtr<EVP_PKEY>(original.key.get()), security::OpenSSLPtr<X509>(forged)};
}

CertificateRef TestIdentity::certificateRef() const {
  X509_up_ref(certificate.get());
  return security::makeCertificate(certificate.get());
}

IdentityRef TestIdentity::identity() const {
  EVP_PKEY_up_ref(key.get());
  return std::make_shared<const Identity>(certificateRef(),
                                          security::makeKey(key.get(), Key::Class::privateKey));
}

std::string TestIdentity::certificatePEM() const {
  const security::OpenSSLPtr<BIO> memory(BIO_new(BIO_s_mem()));
  PEM_write_bio_X509(memory.get(), certificate.get());
  return contentOf(memory.get());
}

std::string TestIdentity::keyPEM() const {
  const security::OpenSSLPtr<BIO> memory(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(memory.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  return contentOf(memory.get());
}

}  // namespace kvl::testing
