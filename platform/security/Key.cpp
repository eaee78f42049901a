// Keys: what they tell of themselves, their encodings, and what can be done with one in hand.
#include "platform/core/NoDestructor.h"
#include "platform/security/EqualObjects.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "platform/security/RSAPrivateKey.h"

#include <local/platform/Security.h>

#include <openssl/rsa.h>
#include <openssl/sha.h>

namespace kvl {
namespace security {

struct KeyMaterial {
  OpenSSLPtr<EVP_PKEY> key;
  Key::Class keyClass;

  static const KeyMaterial& of(const Key& owner) noexcept { return *owner.material_; }
};

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

namespace security {
namespace {

OpenSSLPtr<OSSL_ENCODER_CTX> encoderFor(const Key& key) {
  const bool isPrivate = key.keyClass() == Key::Class::privateKey;
  return OpenSSLPtr<OSSL_ENCODER_CTX>(OSSL_ENCODER_CTX_new_for_pkey(
      nativeKey(key), isPrivate ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, "DER",
      isPrivate ? "PrivateKeyInfo" : "SubjectPublicKeyInfo", nullptr));
}

OpenSSLPtr<EVP_PKEY> decodePrivate(const unsigned char** next, long size) {
  if (auto key = decodeRSAPrivateKey({*next, static_cast<std::size_t>(size)})) {
    *next += size;
    return key;
  }
  const OpenSSLPtr<PKCS8_PRIV_KEY_INFO> info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, next, size));
  return OpenSSLPtr<EVP_PKEY>(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
}

Error statusError(std::int64_t status, std::string_view reason) {
  return Error(NSOSStatusErrorDomain, status, {{NSDebugDescriptionErrorKey, reason}});
}

// RSAPublicKey, not the SubjectPublicKeyInfo around it.
std::optional<Data> encodePKCS1(EVP_PKEY* key) {
  const OpenSSLPtr<OSSL_ENCODER_CTX> encoder(
      OSSL_ENCODER_CTX_new_for_pkey(key, EVP_PKEY_PUBLIC_KEY, "DER", "type-specific", nullptr));
  unsigned char* buffer = nullptr;
  std::size_t size = 0;
  if (!encoder || OSSL_ENCODER_to_data(encoder.get(), &buffer, &size) != 1) return std::nullopt;
  const OpenSSLPtr<unsigned char> owner(buffer);
  return Data(Bytes(buffer, buffer + size));
}

bool prepareSigning(EVP_PKEY_CTX* context) {
  return context != nullptr && EVP_PKEY_sign_init(context) == 1 &&
         EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1 &&
         EVP_PKEY_CTX_set_signature_md(context, EVP_sha256()) == 1;
}

std::optional<Data> signDigest(EVP_PKEY* key, std::span<const std::uint8_t> digest) {
  const OpenSSLPtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
  std::size_t size = 0;
  if (!prepareSigning(context.get()) ||
      EVP_PKEY_sign(context.get(), nullptr, &size, digest.data(), digest.size()) != 1)
    return std::nullopt;
  Bytes signature(size);
  if (EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) != 1)
    return std::nullopt;
  signature.resize(size);
  return Data(std::move(signature));
}

// By the digests of their encodings, in which the halves of a pair differ.
EqualObjects<Bytes, Key>& keys() {
  static NoDestructor<EqualObjects<Bytes, Key>> all;
  return *all;
}

bool isRSA(const KeyRef& key, Key::Class keyClass) {
  return key && key->keyClass() == keyClass && key->type() == Key::Type::rsa;
}

}  // namespace

EVP_PKEY* nativeKey(const Key& key) noexcept {
  return KeyMaterial::of(key).key.get();
}

KeyRef makeKey(EVP_PKEY* adopted, Key::Class keyClass) {
  OpenSSLPtr<EVP_PKEY> key(adopted);
  std::unique_ptr<const KeyMaterial> material(new KeyMaterial{std::move(key), keyClass});
  auto made = std::make_unique<const Key>(std::move(material));
  const WipedBytes encoding = encodeKey(*made);
  if (encoding.empty()) return made;
  return keys().unify(sha256(encoding), std::move(made));
}

WipedBytes encodeKey(const Key& key) {
  const ErrorQueueMark mark;
  if (key.keyClass() == Key::Class::privateKey)
    if (WipedBytes encoded = encodeRSAPrivateKey(*nativeKey(key)); !encoded.empty()) return encoded;
  const OpenSSLPtr<OSSL_ENCODER_CTX> encoder = encoderFor(key);
  // This kind of buffer is wiped when it grows and when it goes.
  const OpenSSLPtr<BIO> bio(BIO_new(BIO_s_secmem()));
  if (!encoder || !bio || OSSL_ENCODER_to_bio(encoder.get(), bio.get()) != 1) return {};
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &bytes);
  return WipedBytes(bytes, bytes + size);
}

KeyRef decodeKey(std::span<const std::uint8_t> bytes, Key::Class keyClass) {
  const ErrorQueueMark mark;
  const unsigned char* next = bytes.data();
  const long size = static_cast<long>(bytes.size());
  OpenSSLPtr<EVP_PKEY> key = keyClass == Key::Class::privateKey
                                 ? decodePrivate(&next, size)
                                 : OpenSSLPtr<EVP_PKEY>(d2i_PUBKEY(nullptr, &next, size));
  if (!key || next != bytes.data() + bytes.size()) return nullptr;
  return makeKey(key.release(), keyClass);
}

std::optional<Dictionary> SecKeyCopyAttributes(const KeyRef& key) {
  if (!key) return std::nullopt;
  Dictionary attributes;
  if (key->type() == Key::Type::rsa) attributes.set(kSecAttrKeyType, kSecAttrKeyTypeRSA);
  attributes.set(kSecAttrKeyClass, key->keyClass() == Key::Class::privateKey
                                       ? kSecAttrKeyClassPrivate
                                       : kSecAttrKeyClassPublic);
  attributes.set(kSecAttrKeySizeInBits, key->sizeInBits());
  return attributes;
}

std::optional<Data> SecKeyCopyExternalRepresentation(const KeyRef& key,
                                                     std::optional<Error>* error) {
  if (!isRSA(key, Key::Class::publicKey)) {
    storeError(error, statusError(errSecParam, "not a public RSA key"));
    return std::nullopt;
  }
  const ErrorQueueMark mark;
  std::optional<Data> encoded = encodePKCS1(nativeKey(*key));
  if (!encoded) storeError(error, statusError(errSecInternalComponent, takeOpenSSLError()));
  return encoded;
}

std::optional<Data> SecKeyCreateSignature(const KeyRef& privateKey,
                                          std::span<const std::uint8_t> digest,
                                          std::optional<Error>* error) {
  if (!isRSA(privateKey, Key::Class::privateKey) || digest.size() != SHA256_DIGEST_LENGTH) {
    storeError(error, statusError(errSecParam, "not a private RSA key and a SHA-256 digest"));
    return std::nullopt;
  }
  const ErrorQueueMark mark;
  std::optional<Data> signature = signDigest(nativeKey(*privateKey), digest);
  if (!signature) storeError(error, statusError(errSecInternalComponent, takeOpenSSLError()));
  return signature;
}

Bytes sha256(std::span<const std::uint8_t> bytes) {
  Bytes digest(SHA256_DIGEST_LENGTH);
  SHA256(bytes.data(), bytes.size(), digest.data());
  return digest;
}

}  // namespace security
}  // namespace kvl
