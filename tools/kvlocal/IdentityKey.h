// A key pair of the program's own, for other programs to use: the framework's private keys cannot
// be read.
#pragma once

#include <local/platform/Security.h>

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

class IdentityKey {
 public:
  // RSA of 2048 bits; null when it cannot be made.
  [[nodiscard]] static std::unique_ptr<IdentityKey> make();

  // The signing request that a notary gets (PKCS#10 as PEM text).
  [[nodiscard]] std::optional<std::string> request() const;
  // Whether the certificate is for this key.
  [[nodiscard]] bool isOf(const kvl::Certificate& certificate) const;
  // The private key (PKCS#8 as PEM text), in memory that is wiped with this object.
  [[nodiscard]] std::string_view text() const;

 private:
  template <auto release>
  struct Release {
    template <class T>
    void operator()(T* object) const noexcept {
      release(object);
    }
  };
  using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
  using Memory = std::unique_ptr<BIO, Release<BIO_free_all>>;

  IdentityKey(Key key, Memory text) : key_(std::move(key)), text_(std::move(text)) {}

  Key key_;
  Memory text_;
};

}  // namespace kvlocal
