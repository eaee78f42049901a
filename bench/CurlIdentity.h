// Whom bare libcurl trusts and who it is, without parsing anything anew for each connection.
#pragma once

#include "bench/RequestProbe.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

namespace kvlbench {

class CurlIdentity {
 public:
  explicit CurlIdentity(const RequestSettings& settings)
      : client_(readCertificate(settings.file(kClientFile))),
        key_(readKey(settings.file(kClientKeyFile))) {
    X509_STORE_add_cert(anchors_.get(), readCertificate(settings.file(kAuthorityFile)).get());
  }

  // This must outlive the handle.
  void prepare(CURL* easy, const RequestSettings& settings) const {
    const bool isHTTP2 = settings.httpVersion == 2;
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_3));
    curl_easy_setopt(easy, CURLOPT_SSL_SESSIONID_CACHE, 0L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION,
                     static_cast<long>(isHTTP2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, isHTTP2 ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &CurlIdentity::use);
    curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, this);
  }

 private:
  static CURLcode use(CURL* /*easy*/, void* context, void* self) {
    const auto& identity = *static_cast<const CurlIdentity*>(self);
    auto* ssl = static_cast<SSL_CTX*>(context);
    SSL_CTX_set1_cert_store(ssl, identity.anchors_.get());
    const bool isGood = SSL_CTX_use_certificate(ssl, identity.client_.get()) == 1 &&
                        SSL_CTX_use_PrivateKey(ssl, identity.key_.get()) == 1;
    return isGood ? CURLE_OK : CURLE_SSL_CERTPROBLEM;
  }

  const kvl::security::OpenSSLPtr<X509_STORE> anchors_{X509_STORE_new()};
  const kvl::security::OpenSSLPtr<X509> client_;
  const kvl::security::OpenSSLPtr<EVP_PKEY> key_;
};

}  // namespace kvlbench
