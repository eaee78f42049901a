// What can be done with a key in hand.
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"

#include <openssl/rsa.h>
#include <openssl/sha.h>

namespace kvl::security {
namespace {

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

bool isRSA(const KeyRef& key, Key::Class keyClass) {
  return key && key->keyClass() == keyClass && key->type() == Key::Type::rsa;
}

}  // namespace

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

}  // namespace kvl::security
