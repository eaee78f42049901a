#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"
#include "tests/security/CertificateFactory.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

namespace kvl::security {
namespace {

class KeyTest : public testing::Test {
 protected:
  static const KeyRef& privateKey() {
    static const KeyRef key = makeKey(kvltest::rsaKey(2048).release(), Key::Class::privateKey);
    return key;
  }
  static KeyRef publicKey() {
    EVP_PKEY* pair = nativeKey(*privateKey());
    EVP_PKEY_up_ref(pair);
    return makeKey(pair, Key::Class::publicKey);
  }
  static KeyRef ellipticPrivateKey() {
    return makeKey(kvltest::ellipticKey().release(), Key::Class::privateKey);
  }
};

// By OpenSSL's own composition of digest and signature.
bool verifies(const KeyRef& key, const Data& signature, std::span<const std::uint8_t> message) {
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  const bool good =
      EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, nativeKey(*key)) == 1 &&
      EVP_DigestVerify(context, signature.data(), signature.size(), message.data(),
                       message.size()) == 1;
  EVP_MD_CTX_free(context);
  return good;
}

TEST_F(KeyTest, KnowsClassTypeAndSize) {
  EXPECT_EQ(privateKey()->keyClass(), Key::Class::privateKey);
  EXPECT_EQ(publicKey()->keyClass(), Key::Class::publicKey);
  EXPECT_EQ(privateKey()->type(), Key::Type::rsa);
  EXPECT_EQ(privateKey()->sizeInBits(), 2048);
  EXPECT_EQ(ellipticPrivateKey()->type(), Key::Type::other);
}

TEST_F(KeyTest, AttributesNameTheSame) {
  const Dictionary ofPrivate{{kSecAttrKeyType, kSecAttrKeyTypeRSA},
                             {kSecAttrKeyClass, kSecAttrKeyClassPrivate},
                             {kSecAttrKeySizeInBits, 2048}};
  EXPECT_EQ(SecKeyCopyAttributes(privateKey()), ofPrivate);
  EXPECT_EQ((*SecKeyCopyAttributes(publicKey()))[kSecAttrKeyClass].string(),
            kSecAttrKeyClassPublic);
  EXPECT_FALSE(SecKeyCopyAttributes(ellipticPrivateKey())->contains(kSecAttrKeyType));
  EXPECT_FALSE(SecKeyCopyAttributes(nullptr));
}

TEST_F(KeyTest, ExternalRepresentationIsPKCS1) {
  std::optional<Error> error;
  const std::optional<Data> exported = SecKeyCopyExternalRepresentation(publicKey(), &error);
  ASSERT_TRUE(exported);
  EXPECT_FALSE(error);
  EXPECT_EQ(exported->size(), 270U);
  const unsigned char* next = exported->data();
  const OpenSSLPtr<EVP_PKEY> decoded(
      d2i_PublicKey(EVP_PKEY_RSA, nullptr, &next, static_cast<long>(exported->size())));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(EVP_PKEY_eq(decoded.get(), nativeKey(*privateKey())), 1);
}

TEST_F(KeyTest, OnlyPublicRSAKeysHaveAnExternalRepresentation) {
  for (const KeyRef& key : {privateKey(), ellipticPrivateKey(), KeyRef()}) {
    std::optional<Error> error;
    EXPECT_FALSE(SecKeyCopyExternalRepresentation(key, &error));
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(NSOSStatusErrorDomain, errSecParam));
    EXPECT_FALSE(SecKeyCopyExternalRepresentation(key, nullptr));
  }
}

TEST_F(KeyTest, SignatureOverADigestVerifiesOverTheMessage) {
  const Bytes message{'a', 'b', 'c'};
  const auto signature = SecKeyCreateSignature(privateKey(), sha256(message), nullptr);
  ASSERT_TRUE(signature);
  EXPECT_EQ(signature->size(), 256U);
  EXPECT_TRUE(verifies(publicKey(), *signature, message));
  EXPECT_FALSE(verifies(publicKey(), *signature, Bytes{'a', 'b', 'd'}));
}

TEST_F(KeyTest, OnlyPrivateRSAKeysSignAndOnlyWholeDigests) {
  const Bytes digest(32);
  const std::pair<KeyRef, std::size_t> cases[] = {{publicKey(), 32},
                                                  {ellipticPrivateKey(), 32},
                                                  {nullptr, 32},
                                                  {privateKey(), 31},
                                                  {privateKey(), 0}};
  for (const auto& [key, size] : cases) {
    std::optional<Error> error;
    EXPECT_FALSE(SecKeyCreateSignature(key, std::span(digest).first(size), &error));
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(NSOSStatusErrorDomain, errSecParam));
  }
}

TEST_F(KeyTest, DigestIsSHA256) {
  const Bytes expected{0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                       0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                       0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
  EXPECT_EQ(sha256(Bytes{'a', 'b', 'c'}), expected);
  EXPECT_EQ(sha256({}).front(), 0xe3);
}

TEST_F(KeyTest, EncodedKeysComeBack) {
  for (const KeyRef& key : {privateKey(), publicKey()}) {
    const WipedBytes encoded = encodeKey(*key);
    const KeyRef decoded = decodeKey(encoded, key->keyClass());
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->keyClass(), key->keyClass());
    EXPECT_EQ(EVP_PKEY_eq(nativeKey(*decoded), nativeKey(*key)), 1);
  }
}

TEST_F(KeyTest, EqualKeysAreOneObject) {
  EXPECT_EQ(decodeKey(encodeKey(*privateKey()), Key::Class::privateKey), privateKey());
  const KeyRef publicHalf = publicKey();
  EXPECT_EQ(decodeKey(encodeKey(*publicHalf), Key::Class::publicKey), publicHalf);
  EXPECT_NE(publicHalf, privateKey());
  EXPECT_NE(ellipticPrivateKey(), ellipticPrivateKey());
}

TEST_F(KeyTest, NobodyKeepsAKeyThatNobodyHolds) {
  const std::weak_ptr<const Key> watch = ellipticPrivateKey();
  EXPECT_TRUE(watch.expired());
}

TEST_F(KeyTest, APublicEncodingHoldsNoPrivateNumbers) {
  EXPECT_EQ(encodeKey(*publicKey()).size(), 294U);
}

TEST_F(KeyTest, OnlyExactlyOneKeyOfTheClassDecodes) {
  WipedBytes encoded = encodeKey(*privateKey());
  EXPECT_FALSE(decodeKey(encoded, Key::Class::publicKey));
  EXPECT_FALSE(decodeKey(std::span(encoded).first(encoded.size() - 1), Key::Class::privateKey));
  encoded.push_back(0);
  EXPECT_FALSE(decodeKey(encoded, Key::Class::privateKey));
  EXPECT_FALSE(decodeKey({}, Key::Class::privateKey));
}

TEST_F(KeyTest, FailuresLeaveNothingInOpenSSLsQueue) {
  ERR_clear_error();
  EXPECT_FALSE(decodeKey(Bytes{1, 2, 3}, Key::Class::privateKey));
  EXPECT_FALSE(decodeCertificate(Bytes{1, 2, 3}));
  EXPECT_EQ(ERR_peek_error(), 0U);
}

}  // namespace
}  // namespace kvl::security
