#include "tools/kvlocal/IdentityKey.h"

#include <local/platform/Text.h>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace kvlocal {
namespace {

constexpr unsigned int kKeyBits = 2048;
constexpr std::size_t kBytesInLine = 48;

// Lines end as those of the framework's requests do.
std::string asPEM(std::span<const std::uint8_t> request) {
  std::string text = "-----BEGIN CERTIFICATE REQUEST-----\n";
  for (std::string_view lineEnd; !request.empty(); lineEnd = "\r\n") {
    const auto line = request.first(std::min(kBytesInLine, request.size()));
    text.append(lineEnd).append(kvl::base64(line));
    request = request.subspan(line.size());
  }
  return text + "\n-----END CERTIFICATE REQUEST-----";
}

}  // namespace

std::unique_ptr<IdentityKey> IdentityKey::make() {
  Key key(EVP_RSA_gen(kKeyBits));
  // What it holds is wiped as it grows and when it is freed.
  Memory text(BIO_new(BIO_s_mem()));
  if (!key || !text) return nullptr;
  if (PEM_write_bio_PKCS8PrivateKey(text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) !=
      1)
    return nullptr;
  return std::unique_ptr<IdentityKey>(new IdentityKey(std::move(key), std::move(text)));
}

std::optional<std::string> IdentityKey::request() const {
  const std::unique_ptr<X509_REQ, Release<X509_REQ_free>> request(X509_REQ_new());
  if (!request || X509_REQ_set_version(request.get(), 0) != 1 ||
      X509_REQ_set_pubkey(request.get(), key_.get()) != 1 ||
      X509_REQ_sign(request.get(), key_.get(), EVP_sha256()) <= 0)
    return std::nullopt;
  kvl::Bytes bytes(static_cast<std::size_t>(std::max(0, i2d_X509_REQ(request.get(), nullptr))));
  unsigned char* end = bytes.data();
  if (bytes.empty() || i2d_X509_REQ(request.get(), &end) <= 0) return std::nullopt;
  return asPEM(bytes);
}

bool IdentityKey::isOf(const kvl::Certificate& certificate) const {
  const kvl::Data encoded = certificate.encoded();
  const unsigned char* bytes = encoded.data();
  const std::unique_ptr<X509, Release<X509_free>> read(
      d2i_X509(nullptr, &bytes, static_cast<long>(encoded.size())));
  return read && X509_check_private_key(read.get(), key_.get()) == 1;
}

std::string_view IdentityKey::text() const {
  char* begin = nullptr;
  const long size = BIO_get_mem_data(text_.get(), &begin);
  return {begin, static_cast<std::size_t>(size)};
}

}  // namespace kvlocal
