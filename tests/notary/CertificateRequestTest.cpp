#include "notary/Base64Lines.h"
#include "platform/security/OpenSSLAccess.h"
#include "platform/security/Operations.h"

#include <local/KVLCertificateRequest.h>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace {

using kvl::Bytes;
using kvl::Key;
using kvl::KeyRef;

constexpr std::string_view kHeader = "-----BEGIN CERTIFICATE REQUEST-----\n";
constexpr std::string_view kFooter = "\n-----END CERTIFICATE REQUEST-----";

struct Pair {
  KeyRef publicKey;
  KeyRef privateKey;
};

Pair pairFor(EVP_PKEY* key) {
  EVP_PKEY_up_ref(key);
  return {kvl::security::makeKey(key, Key::Class::publicKey),
          kvl::security::makeKey(key, Key::Class::privateKey)};
}

Pair rsaPair() {
  static EVP_PKEY* const key = EVP_RSA_gen(2048);
  EVP_PKEY_up_ref(key);
  return pairFor(key);
}

Pair ellipticPair() {
  return pairFor(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

// The DER bytes between header and footer, by OpenSSL's decoder.
Bytes decoded(std::string_view pem) {
  std::string text(pem.substr(kHeader.size(), pem.size() - kHeader.size() - kFooter.size()));
  std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
  Bytes bytes(text.size() / 4 * 3);
  EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                  static_cast<int>(text.size()));
  while (text.ends_with('=')) {
    text.pop_back();
    bytes.pop_back();
  }
  return bytes;
}

// What OpenSSL makes of an empty subject, no attributes and this key.
Bytes oracle(const KeyRef& key) {
  X509_REQ* request = X509_REQ_new();
  X509_REQ_set_version(request, X509_REQ_VERSION_1);
  X509_REQ_set_pubkey(request, kvl::security::nativeKey(*key));
  X509_REQ_sign(request, kvl::security::nativeKey(*key), EVP_sha256());
  unsigned char* out = nullptr;
  const int length = i2d_X509_REQ(request, &out);
  Bytes bytes(out, out + length);
  OPENSSL_free(out);
  X509_REQ_free(request);
  return bytes;
}

class CertificateRequestTest : public testing::Test {
 protected:
  static std::string made(Pair pair) {
    std::optional<kvl::Error> error;
    const auto pem = KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey),
                                                               pair.privateKey, &error);
    EXPECT_FALSE(error) << error->description();
    return pem.value_or("");
  }
};

TEST_F(CertificateRequestTest, EqualsOpenSSLsByteForByte) {
  const auto pair = rsaPair();
  const auto bytes = decoded(made(pair));
  EXPECT_EQ(bytes.size(), 585U);
  EXPECT_EQ(bytes, oracle(pair.privateKey));
}

TEST_F(CertificateRequestTest, BeginsWithTheKnownBytes) {
  const Bytes prefix = {0x30, 0x82, 0x02, 0x45, 0x30, 0x82, 0x01, 0x2d, 0x02, 0x01,
                        0x00, 0x30, 0x00, 0x30, 0x82, 0x01, 0x22, 0x30, 0x0d, 0x06,
                        0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x01, 0x01,
                        0x05, 0x00, 0x03, 0x82, 0x01, 0x0f, 0x00};
  const auto bytes = decoded(made(rsaPair()));
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + static_cast<int>(prefix.size())), prefix);
  // The attributes follow the 270 bytes of the key.
  EXPECT_EQ(bytes[prefix.size() + 270], 0xa0);
  EXPECT_EQ(bytes[prefix.size() + 271], 0x00);
}

TEST_F(CertificateRequestTest, SignatureCoversTheInformation) {
  const auto pair = rsaPair();
  const auto bytes = decoded(made(pair));
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr,
                       kvl::security::nativeKey(*pair.publicKey));
  EVP_DigestVerifyUpdate(context, bytes.data() + 4, 305);
  EXPECT_EQ(EVP_DigestVerifyFinal(context, bytes.data() + bytes.size() - 256, 256), 1);
  EVP_MD_CTX_free(context);
}

TEST_F(CertificateRequestTest, PEMHasThirteenLinesAndNoFinalLineEnd) {
  const auto pem = made(rsaPair());
  ASSERT_TRUE(pem.starts_with(kHeader));
  ASSERT_TRUE(pem.ends_with(kFooter));
  auto body = pem.substr(kHeader.size(), pem.size() - kHeader.size() - kFooter.size());
  std::vector<std::size_t> lengths;
  for (auto end = body.find("\r\n"); end != std::string::npos; end = body.find("\r\n")) {
    lengths.push_back(end);
    body.erase(0, end + 2);
  }
  lengths.push_back(body.size());
  std::vector<std::size_t> expected(12, 64);
  expected.push_back(12);
  EXPECT_EQ(lengths, expected);
}

TEST_F(CertificateRequestTest, OpenSSLReadsThePEMText) {
  const auto pem = made(rsaPair());
  BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  X509_REQ* request = PEM_read_bio_X509_REQ(bio, nullptr, nullptr, nullptr);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(X509_REQ_verify(request, X509_REQ_get0_pubkey(request)), 1);
  X509_REQ_free(request);
  BIO_free(bio);
}

TEST_F(CertificateRequestTest, ConsumesTheReferenceToThePublicKey) {
  auto [publicKey, privateKey] = rsaPair();
  const std::weak_ptr<const Key> watch = publicKey;
  std::optional<kvl::Error> error;
  ASSERT_TRUE(KVLCertificateRequest::createForPublicKey(std::move(publicKey), privateKey, &error));
  EXPECT_EQ(publicKey, nullptr);  // NOLINT(bugprone-use-after-move): that is the contract
  EXPECT_TRUE(watch.expired());
}

TEST_F(CertificateRequestTest, KeepsThePublicKeyWhenItFailsBeforeTheExport) {
  auto [publicKey, privateKey] = rsaPair();
  std::optional<kvl::Error> error;
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(std::move(publicKey), nullptr, &error));
  EXPECT_NE(publicKey, nullptr);  // NOLINT(bugprone-use-after-move): that is the contract
}

TEST_F(CertificateRequestTest, MissingKeysAreParameterErrors) {
  struct Case {
    bool hasPrivate;
    bool hasPublic;
    std::string text;
  };
  for (const auto& [hasPrivate, hasPublic, text] :
       {Case{false, true, "null private key"}, Case{true, false, "null public key"},
        Case{false, false, "null private key"}}) {
    auto pair = rsaPair();
    std::optional<kvl::Error> error;
    EXPECT_FALSE(
        KVLCertificateRequest::createForPublicKey(hasPublic ? std::move(pair.publicKey) : nullptr,
                                                  hasPrivate ? pair.privateKey : nullptr, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, kvl::Error(kvl::NSOSStatusErrorDomain, -50, {{"error", text}}));
  }
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(nullptr, nullptr));
}

TEST_F(CertificateRequestTest, KeyThatIsNotRSAIsRefusedWhenAnErrorSlotIsGiven) {
  auto pair = ellipticPair();
  std::optional<kvl::Error> error;
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey), pair.privateKey,
                                                         &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(*error, kvl::Error(kvl::NSOSStatusErrorDomain, -67712));
}

TEST_F(CertificateRequestTest, WithoutAnErrorSlotTheKeyTypeIsNotTested) {
  // The request then fails later, in the export of a key that is not RSA.
  auto pair = ellipticPair();
  EXPECT_FALSE(
      KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey), pair.privateKey));
  EXPECT_EQ(pair.publicKey, nullptr);  // NOLINT(bugprone-use-after-move): it was exported
}

TEST_F(CertificateRequestTest, SlotThatHoldsAnErrorEndsTheOperation) {
  auto pair = rsaPair();
  std::optional<kvl::Error> error = kvl::Error("earlier", 1);
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey), pair.privateKey,
                                                         &error));
  EXPECT_EQ(error, kvl::Error("earlier", 1));
  EXPECT_NE(pair.publicKey, nullptr);  // NOLINT(bugprone-use-after-move): nothing was done
}

TEST_F(CertificateRequestTest, SlotThatHoldsAnErrorIsReplacedByTheKeyTypesError) {
  auto pair = ellipticPair();
  std::optional<kvl::Error> error = kvl::Error("earlier", 1);
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey), pair.privateKey,
                                                         &error));
  EXPECT_EQ(error->code(), -67712);
}

TEST_F(CertificateRequestTest, FailedSigningPassesTheErrorOn) {
  auto pair = rsaPair();
  auto other = rsaPair();
  std::optional<kvl::Error> error;
  // A public key cannot sign.
  EXPECT_FALSE(KVLCertificateRequest::createForPublicKey(std::move(pair.publicKey), other.publicKey,
                                                         &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), kvl::NSOSStatusErrorDomain);
}

TEST(Base64LinesTest, EncodesTheExamplesOfTheRFC) {
  const std::pair<std::string_view, std::string_view> table[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : table) {
    EXPECT_EQ(kvl::notary::base64Lines(kvl::Data::fromText(plain).bytes()), encoded);
  }
}

TEST(Base64LinesTest, BreaksAfterSixtyFourCharactersOnlyBetweenLines) {
  EXPECT_EQ(kvl::notary::base64Lines(Bytes(48)), std::string(64, 'A'));
  EXPECT_EQ(kvl::notary::base64Lines(Bytes(51)), std::string(64, 'A') + "\r\nAAAA");
}

}  // namespace
