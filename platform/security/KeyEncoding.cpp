#include "platform/security/KeyEncoding.h"

#include "platform/security/OpenSSLAccess.h"

namespace kvl::security {
namespace {

OpenSSLPtr<OSSL_ENCODER_CTX> encoderFor(const Key& key) {
  const bool isPrivate = key.keyClass() == Key::Class::privateKey;
  return OpenSSLPtr<OSSL_ENCODER_CTX>(OSSL_ENCODER_CTX_new_for_pkey(
      nativeKey(key), isPrivate ? EVP_PKEY_KEYPAIR : EVP_PKEY_PUBLIC_KEY, "DER",
      isPrivate ? "PrivateKeyInfo" : "SubjectPublicKeyInfo", nullptr));
}

OpenSSLPtr<EVP_PKEY> decodePrivate(const unsigned char** next, long size) {
  const OpenSSLPtr<PKCS8_PRIV_KEY_INFO> info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, next, size));
  return OpenSSLPtr<EVP_PKEY>(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
}

}  // namespace

WipedBytes encodeKey(const Key& key) {
  const ErrorQueueMark mark;
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

}  // namespace kvl::security
