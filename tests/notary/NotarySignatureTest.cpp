#include "notary/NotarySignatureImplementation.h"
#include "platform/environment/Environment.h"
#include "platform/security/Operations.h"
#include "tests/support/LogCapture.h"
#include "tests/support/MadeCertificate.h"

#include <local/KVLNotarySignature.h>
#include <local/platform/SystemVersion.h>

#include <gtest/gtest.h>

namespace {

using kvl::Date;
using kvl::Dictionary;
using kvl::Value;
using kvltest::certificateEnding;

const Date kNow(8.0e8);

class NotarySignatureTest : public testing::TestWithParam<kvl::SystemVersion> {
 protected:
  NotarySignatureTest() { kvl::setSystemVersion(GetParam()); }
  ~NotarySignatureTest() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }

  static std::shared_ptr<const kvl::Environment> standingStill() {
    auto environment = std::make_shared<kvl::Environment>();
    environment->now = [] { return kNow; };
    return environment;
  }
  KVLNotarySignature signature{standingStill()};
};

INSTANTIATE_TEST_SUITE_P(BothSidesOf15, NotarySignatureTest,
                         testing::Values(kvl::SystemVersion{14, 9}, kvl::SystemVersion{15, 0}),
                         [](const auto& test) { return "On" + std::to_string(test.param.major); });

TEST_P(NotarySignatureTest, ReadsTheEndOfACertificate) {
  EXPECT_EQ(KVLNotarySignature::certificateNotValidAfter(certificateEnding(kNow.adding(100))),
            kNow.adding(100));
  EXPECT_EQ(KVLNotarySignature::certificateNotValidAfter(nullptr), std::nullopt);
}

TEST_P(NotarySignatureTest, ExpiresWithTheClientCertificate) {
  signature.setClient(certificateEnding(kNow.adding(100)));
  signature.setAnchor(certificateEnding(kNow.adding(50)));
  EXPECT_EQ(signature.expires(), kNow.adding(100));
}

TEST_P(NotarySignatureTest, ExpiresWithTheAnchorWithoutAClientCertificate) {
  signature.setAnchor(certificateEnding(kNow.adding(50)));
  EXPECT_EQ(signature.expires(), kNow.adding(50));
}

TEST_P(NotarySignatureTest, ExpiresWithTheAnchorWhenTheClientCertificatesEndCannotBeRead) {
  signature.setClient(kvltest::certificateWithoutReadableEnd());
  signature.setAnchor(certificateEnding(kNow.adding(50)));
  EXPECT_EQ(signature.expires(), kNow.adding(50));
}

TEST_P(NotarySignatureTest, HasNoExpiryWithoutCertificates) {
  EXPECT_EQ(signature.expires(), std::nullopt);
  EXPECT_EQ(signature.description(), "notary signature valid until (null) (0.00 seconds)");
}

TEST_P(NotarySignatureTest, DescribesItsExpiryAndTheTimeUntilThen) {
  signature.setClient(certificateEnding(kNow.adding(100)));
  EXPECT_EQ(signature.description(),
            "notary signature valid until 2026-05-09 06:15:00 +0000 (100.00 seconds)");
  signature.setClient(certificateEnding(kNow.adding(-7)));
  EXPECT_NE(signature.description().find("(-7.00 seconds)"), std::string::npos);
}

TEST_P(NotarySignatureTest, CredentialsNeedAnIdentity) {
  const auto client = certificateEnding(kNow.adding(100));
  signature.setClient(client);
  EXPECT_EQ(signature.credentials(), nullptr);
  const auto identity = std::make_shared<const kvl::Identity>(client, nullptr);
  signature.setIdentity(identity);
  const auto credential = signature.credentials();
  ASSERT_NE(credential, nullptr);
  EXPECT_EQ(credential->identity(), identity);
  EXPECT_EQ(credential->certificates(), std::vector{client});
  EXPECT_EQ(credential->persistence(), kvl::Credential::Persistence::none);
}

TEST_P(NotarySignatureTest, SecurityObjectsStayForTheLifeOfTheProcess) {
  std::weak_ptr<const kvl::Certificate> watch;
  {
    KVLNotarySignature passing;
    const auto anchor = certificateEnding(kNow);
    watch = anchor;
    passing.setAnchor(anchor);
    passing.setAnchor(nullptr);
  }
  EXPECT_FALSE(watch.expired());
}

class NotValidAfterTest : public testing::Test {
 protected:
  static std::optional<Date> read(const Value& value) {
    return kvl::notary::notValidAfterFromValues(
        Dictionary{{kvl::security::kSecOIDX509V1ValidityNotAfter,
                    Dictionary{{kvl::security::kSecPropertyKeyValue, value}}}});
  }
  const kvltest::LogCapture log;
};

TEST_F(NotValidAfterTest, TakesDatesAsTheyAre) {
  EXPECT_EQ(read(kNow), kNow);
}

TEST_F(NotValidAfterTest, TakesNumbersAsSecondsSince2001) {
  EXPECT_EQ(read(0), Date(0));
  EXPECT_EQ(read(86400.5), Date(86400.5));
  EXPECT_EQ(read(0)->description(), "2001-01-01 00:00:00 +0000");
}

TEST_F(NotValidAfterTest, LogsEveryOtherTypeWithTheWholeDictionary) {
  EXPECT_EQ(read("tomorrow"), std::nullopt);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(log.lines()[0], "unknown not-after: {" +
                                std::string(kvl::security::kSecOIDX509V1ValidityNotAfter) +
                                " = {value = tomorrow}}");
}

TEST_F(NotValidAfterTest, AbsentPartsAreSilent) {
  constexpr auto key = kvl::security::kSecOIDX509V1ValidityNotAfter;
  EXPECT_EQ(kvl::notary::notValidAfterFromValues(std::nullopt), std::nullopt);
  EXPECT_EQ(kvl::notary::notValidAfterFromValues(Dictionary{}), std::nullopt);
  EXPECT_EQ(kvl::notary::notValidAfterFromValues(Dictionary{{key, "no dictionary"}}), std::nullopt);
  EXPECT_EQ(kvl::notary::notValidAfterFromValues(Dictionary{{key, Dictionary{}}}), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
