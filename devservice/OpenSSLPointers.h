// Owners for OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace devservice {

template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const noexcept {
    release(object);
  }
};

using BioPtr = std::unique_ptr<BIO, Release<BIO_free_all>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Release<X509_free>>;
using RequestPtr = std::unique_ptr<X509_REQ, Release<X509_REQ_free>>;

}  // namespace devservice
