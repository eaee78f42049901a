#include "devservice/notary/RequestCheck.h"
#include "tests/devservice/MadeRequest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kvltest {
namespace {

using devservice::checkRequest;
using devservice::KeyPtr;
using devservice::Refusal;

std::string refusalOf(std::string_view pem) {
  const auto result = checkRequest(pem);
  const Refusal* refusal = std::get_if<Refusal>(&result);
  return refusal != nullptr ? refusal->reason : "";
}

class RequestCheckTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { key_ = makeRSAKey(); }
  static void TearDownTestSuite() { key_.reset(); }
  static inline KeyPtr key_;
};

TEST_F(RequestCheckTest, SoundRequestIsAccepted) {
  const std::string pem = pemOf(makeRequest(key_.get()));
  EXPECT_EQ(refusalOf(pem), "");
  EXPECT_EQ(refusalOf(std::string_view(pem).substr(0, pem.size() - 1)), "");
}

TEST_F(RequestCheckTest, LinesMayEndInCarriageReturnAndLineFeed) {
  std::string pem = pemOf(makeRequest(key_.get()));
  for (auto end = pem.find('\n'); end != std::string::npos; end = pem.find('\n', end + 2)) {
    pem.insert(end, "\r");
  }
  const auto body = pem.find("\r\n");
  pem.erase(body, 1);  // the line of the label ends in a line feed
  pem.erase(pem.rfind("\r\n-----END"), 1);
  EXPECT_EQ(refusalOf(pem.substr(0, pem.size() - 2)), "");
}

TEST_F(RequestCheckTest, TextThatIsNotOneBlockIsRefused) {
  const std::string pem = pemOf(makeRequest(key_.get()));
  const std::string oneLine = "-----BEGIN CERTIFICATE REQUEST-----\nAA";
  const std::vector<std::string> texts{
      "",
      "rubbish",
      "text\n" + pem,
      pem + "trailing",
      pem + "\n",
      pem + pem,
      oneLine,
      pemOf(makeRequest(key_.get()), "NEW CERTIFICATE REQUEST"),
      pemOf(makeRequest(key_.get()), "CERTIFICATE"),
      pemOf({}),
      "-----BEGIN CERTIFICATE REQUEST-----\n!!!!\n-----END CERTIFICATE REQUEST-----\n",
      "-----BEGIN CERTIFICATE REQUEST-----\nAAA\n-----END CERTIFICATE REQUEST-----\n",
      "-----BEGIN CERTIFICATE REQUEST-----\nA===\n-----END CERTIFICATE REQUEST-----\n",
  };
  for (const std::string& text : texts) {
    EXPECT_EQ(refusalOf(text), "The request is not one PEM block labelled CERTIFICATE REQUEST.")
        << text;
  }
}

TEST_F(RequestCheckTest, TrailingBytesAndCutBytesAreRefused) {
  DER longer = makeRequest(key_.get());
  longer.push_back(0);
  EXPECT_EQ(refusalOf(pemOf(longer)), "The request has trailing bytes.");
  DER shorter = makeRequest(key_.get());
  shorter.pop_back();
  EXPECT_EQ(refusalOf(pemOf(shorter)), "The request is not a PKCS#10 request.");
}

TEST_F(RequestCheckTest, OtherVersionIsRefused) {
  EXPECT_EQ(refusalOf(pemOf(makeRequest(key_.get(), 2))), "The request's version is not 0.");
}

TEST_F(RequestCheckTest, WeakOrForeignKeyIsRefused) {
  const std::string reason = "The request's key is not an RSA key of 2048 to 16384 bits.";
  EXPECT_EQ(refusalOf(pemOf(makeRequest(makeRSAKey(1024).get()))), reason);
  const KeyPtr curve(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  EXPECT_EQ(refusalOf(pemOf(makeRequest(curve.get()))), reason);
}

TEST_F(RequestCheckTest, WeakDigestIsRefused) {
  EXPECT_EQ(refusalOf(pemOf(makeRequest(key_.get(), 0, EVP_sha1()))),
            "The request is not signed with RSA and SHA-2.");
}

TEST_F(RequestCheckTest, ForgedSignatureIsRefused) {
  DER der = makeRequest(key_.get());
  der.back() ^= 1U;
  EXPECT_EQ(refusalOf(pemOf(der)), "The request's signature does not verify.");
}

TEST_F(RequestCheckTest, OverlongTextIsRefused) {
  EXPECT_EQ(refusalOf(std::string(devservice::kMaximumRequestSize + 1, 'A')),
            "The request is too large.");
}

}  // namespace
}  // namespace kvltest
