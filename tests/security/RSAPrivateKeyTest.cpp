#include "platform/security/RSAPrivateKey.h"
#include "tests/security/CertificateFactory.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kvl::security {
namespace {

Bytes encodedByOpenSSL(const EVP_PKEY& key) {
  const OpenSSLPtr<PKCS8_PRIV_KEY_INFO> info(EVP_PKEY2PKCS8(&key));
  unsigned char* bytes = nullptr;
  const int size = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &bytes);
  const OpenSSLPtr<unsigned char> owner(bytes);
  return {bytes, bytes + size};
}

// Keys differ in the length of their numbers.
TEST(RSAPrivateKeyTest, IsEncodedAsByOpenSSLAndComesBack) {
  for (const unsigned int bits : {512U, 513U, 520U, 1024U, 1030U, 2048U}) {
    for (int i = 0; i < (bits < 2048 ? 5 : 1); ++i) {
      const auto key = kvltest::rsaKey(bits);
      const WipedBytes encoded = encodeRSAPrivateKey(*key);
      EXPECT_TRUE(std::ranges::equal(encoded, encodedByOpenSSL(*key))) << bits;
      const auto decoded = decodeRSAPrivateKey(encoded);
      ASSERT_TRUE(decoded) << bits;
      EXPECT_EQ(EVP_PKEY_eq(key.get(), decoded.get()), 1);
      EXPECT_EQ(encodeRSAPrivateKey(*decoded), encoded);
    }
  }
}

TEST(RSAPrivateKeyTest, OtherKeysAreNotEncoded) {
  const auto elliptic = kvltest::ellipticKey();
  EXPECT_TRUE(encodeRSAPrivateKey(*elliptic).empty());
  EXPECT_FALSE(decodeRSAPrivateKey(encodedByOpenSSL(*elliptic)));
  const auto pair = kvltest::rsaKey(512);
  unsigned char* bytes = nullptr;
  const int size = i2d_PUBKEY(pair.get(), &bytes);
  const OpenSSLPtr<unsigned char> owner(bytes);
  const unsigned char* next = bytes;
  const OpenSSLPtr<EVP_PKEY> half(d2i_PUBKEY(nullptr, &next, size));
  EXPECT_TRUE(encodeRSAPrivateKey(*half).empty());
}

// Two of its primes would be another key.
TEST(RSAPrivateKeyTest, KeyOfThreePrimesIsLeftToOpenSSL) {
  const auto key = kvltest::rsaKey(1024, 3);
  EXPECT_TRUE(encodeRSAPrivateKey(*key).empty());
  EXPECT_FALSE(decodeRSAPrivateKey(encodedByOpenSSL(*key)));
  EVP_PKEY_up_ref(key.get());
  const KeyRef made = makeKey(key.get(), Key::Class::privateKey);
  const WipedBytes encoded = encodeKey(*made);
  EXPECT_TRUE(std::ranges::equal(encoded, encodedByOpenSSL(*key)));
  EXPECT_EQ(decodeKey(encoded, Key::Class::privateKey), made);
}

TEST(RSAPrivateKeyTest, OnlyExactlyOneKeyIsDecoded) {
  const WipedBytes whole = encodeRSAPrivateKey(*kvltest::rsaKey(512));
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(decodeRSAPrivateKey(std::span(whole).first(size))) << size;
  WipedBytes longer = whole;
  longer.push_back(0);
  EXPECT_FALSE(decodeRSAPrivateKey(longer));
  // Whatever is decoded is encoded so, or not at all when its numbers belong to no key.
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const std::uint8_t change : Bytes{0x01, 0x80, 0xff}) {
      WipedBytes changed = whole;
      changed[i] = static_cast<std::uint8_t>(changed[i] ^ change);
      const auto decoded = decodeRSAPrivateKey(changed);
      const auto again = decoded ? encodeRSAPrivateKey(*decoded) : WipedBytes();
      EXPECT_TRUE(again.empty() || again == changed) << i;
    }
  }
}

}  // namespace
}  // namespace kvl::security
