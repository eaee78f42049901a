#include "platform/security/OpenSSLAccess.h"

#include <local/platform/Security.h>

namespace kvl {
namespace security {

struct KeyMaterial {
  OpenSSLPtr<EVP_PKEY> key;
  Key::Class keyClass;
};

EVP_PKEY* nativeKey(const Key& key) noexcept {
  return key.material().key.get();
}

KeyRef makeKey(EVP_PKEY* adopted, Key::Class keyClass) {
  OpenSSLPtr<EVP_PKEY> key(adopted);
  return std::make_shared<const Key>(
      std::unique_ptr<const KeyMaterial>(new KeyMaterial{std::move(key), keyClass}));
}

}  // namespace security

Key::Key(std::unique_ptr<const security::KeyMaterial> material) noexcept
    : material_(std::move(material)) {}

Key::~Key() = default;

Key::Class Key::keyClass() const noexcept {
  return material_->keyClass;
}

Key::Type Key::type() const noexcept {
  return EVP_PKEY_is_a(material_->key.get(), "RSA") == 1 ? Type::rsa : Type::other;
}

int Key::sizeInBits() const noexcept {
  return EVP_PKEY_get_bits(material_->key.get());
}

}  // namespace kvl
