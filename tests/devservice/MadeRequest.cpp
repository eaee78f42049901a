#include "tests/devservice/MadeRequest.h"

#include "devservice/Authority.h"

#include <openssl/rsa.h>

#include <algorithm>

namespace kvltest {

devservice::KeyPtr makeRSAKey(unsigned bits) {
  return devservice::KeyPtr(EVP_RSA_gen(bits));
}

DER makeRequest(EVP_PKEY* key, long version, const EVP_MD* digest) {
  const devservice::RequestPtr request(X509_REQ_new());
  X509_REQ_set_version(request.get(), version);
  X509_REQ_set_pubkey(request.get(), key);
  X509_REQ_sign(request.get(), key, digest);
  unsigned char* bytes = nullptr;
  const int size = i2d_X509_REQ(request.get(), &bytes);
  DER der(bytes, bytes + size);
  OPENSSL_free(bytes);
  return der;
}

std::string pemOf(const DER& der, std::string_view label) {
  constexpr std::size_t kLine = 64;
  std::string base64((der.size() + 2) / 3 * 4 + 1, '\0');
  base64.resize(static_cast<std::size_t>(EVP_EncodeBlock(
      reinterpret_cast<unsigned char*>(base64.data()), der.data(), static_cast<int>(der.size()))));
  std::string text = "-----BEGIN " + std::string(label) + "-----\n";
  for (std::size_t start = 0; start < base64.size(); start += kLine)
    text += base64.substr(start, kLine) + "\n";
  return text + "-----END " + std::string(label) + "-----\n";
}

std::string keyText(EVP_PKEY* key) {
  return devservice::pemText(key);
}

}  // namespace kvltest
