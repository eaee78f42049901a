#include "devservice/ClientCertificate.h"

#include "devservice/OpenSSLPointers.h"

#include <httplib.h>
#include <openssl/ssl.h>

namespace devservice {
namespace {

std::string contentOf(BIO* memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory, &bytes);
  return std::string(bytes, static_cast<std::size_t>(size));
}

std::string nameText(const X509_NAME* name) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  return contentOf(memory.get());
}

std::string timeText(const ASN1_TIME* time) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  ASN1_TIME_print(memory.get(), time);
  return contentOf(memory.get());
}

}  // namespace

ClientCertificate clientCertificate(const httplib::Request& request) {
  const CertificatePtr certificate(SSL_get1_peer_certificate(request.ssl));
  if (!certificate) return {};
  return {nameText(X509_get_subject_name(certificate.get())),
          nameText(X509_get_issuer_name(certificate.get())),
          timeText(X509_get0_notAfter(certificate.get()))};
}

}  // namespace devservice
