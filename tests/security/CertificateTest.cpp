#include "platform/security/Operations.h"
#include "tests/security/CertificateFactory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace kvl::security {
namespace {

using kvltest::CertificatePlan;
using kvltest::issue;
using kvltest::Issued;

struct DateCase {
  const char* field;
  double secondsSince1970;
};

class CertificateDateTest : public testing::TestWithParam<DateCase> {};

TEST_P(CertificateDateTest, ReadsEveryFormOfTheField) {
  CertificatePlan plan;
  plan.notBefore = GetParam().field;
  plan.notAfter = GetParam().field;
  const CertificateRef certificate = issue(plan).reference();
  EXPECT_EQ(certificate->notValidAfter(), Date::since1970(GetParam().secondsSince1970));
  EXPECT_EQ(certificate->notValidBefore(), Date::since1970(GetParam().secondsSince1970));
}

// Both forms of RFC 5280, 4.1.2.5, at their limits.
INSTANTIATE_TEST_SUITE_P(
    Fields, CertificateDateTest,
    testing::Values(DateCase{"010101000000Z", 978307200}, DateCase{"491231235959Z", 2524607999},
                    DateCase{"500101000000Z", -631152000}, DateCase{"691231235959Z", -1},
                    DateCase{"240229120000Z", 1709208000}, DateCase{"20500101000000Z", 2524608000},
                    DateCase{"21000301000000Z", 4107542400},
                    DateCase{"99991231235959Z", 253402300799},
                    DateCase{"19000101000000Z", -2208988800}));

TEST(CertificateTest, NamesAreRFC2253InUTF8) {
  const Issued anchor =
      issue({.commonName = "R\xC3\xB6\xC3\xB6t, the \"first\"", .isAuthority = true});
  const CertificateRef leaf =
      issue({.commonName = "\xE6\x97\xA5\xE6\x9C\xAC"}, &anchor).reference();
  EXPECT_EQ(leaf->subject(), "CN=\xE6\x97\xA5\xE6\x9C\xAC");
  EXPECT_EQ(leaf->issuer(), "CN=R\xC3\xB6\xC3\xB6t\\, the \\\"first\\\"");
}

TEST(CertificateTest, AnEmptyNameIsAnEmptyText) {
  EXPECT_EQ(issue({.commonName = ""}).reference()->subject(), "");
}

TEST(CertificateTest, SerialNumberIsUpperCaseHexadecimal) {
  const Issued issued = issue({});
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(issued.certificate.get()), 0xABCDEF0123);
  EXPECT_EQ(issued.reference()->serialNumber(), "ABCDEF0123");
}

TEST(CertificateTest, TextAndBytesLeadBackToTheSameCertificate) {
  const CertificateRef certificate = issue({}).reference();
  const CertificateRef again = decodeCertificate(certificate->encoded().bytes());
  ASSERT_TRUE(again);
  EXPECT_EQ(X509_cmp(nativeCertificate(*certificate).get(), nativeCertificate(*again).get()), 0);
  EXPECT_TRUE(certificate->pem().starts_with("-----BEGIN CERTIFICATE-----\n"));
  EXPECT_TRUE(certificate->pem().ends_with("\n-----END CERTIFICATE-----\n"));
}

TEST(CertificateTest, EqualCertificatesAreOneObject) {
  const CertificateRef certificate = issue({}).reference();
  EXPECT_EQ(decodeCertificate(certificate->encoded().bytes()), certificate);
  std::vector<CertificateRef> imported;
  ASSERT_EQ(SecItemImportCertificates(certificate->pem() + certificate->pem(), imported), kSuccess);
  EXPECT_EQ(imported, (std::vector{certificate, certificate}));
  EXPECT_NE(issue({}).reference(), certificate);
}

TEST(CertificateTest, NobodyKeepsACertificateThatNobodyHolds) {
  CertificateRef certificate = issue({}).reference();
  const Data der = certificate->encoded();
  const std::weak_ptr<const Certificate> watch = certificate;
  certificate.reset();
  EXPECT_TRUE(watch.expired());
  certificate = decodeCertificate(der.bytes());
  ASSERT_TRUE(certificate);
  EXPECT_EQ(certificate->encoded(), der);
}

TEST(CertificateTest, EncodingIsHandedOutWithoutACopy) {
  const CertificateRef certificate = issue({}).reference();
  EXPECT_EQ(certificate->encoded().data(), certificate->encoded().data());
}

TEST(CertificateTest, ManyThreadsGetOneObject) {
  const Data der = issue({}).der();
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  std::atomic<int> different = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const CertificateRef one = decodeCertificate(der.bytes());
        if (!one || one != decodeCertificate(der.bytes())) ++different;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(different, 0);
}

TEST(CertificateTest, BytesAfterACertificateAreRefused) {
  const Data der = issue({}).der();
  Bytes longer(der.bytes().begin(), der.bytes().end());
  longer.push_back(0);
  EXPECT_FALSE(decodeCertificate(longer));
  EXPECT_FALSE(decodeCertificate({}));
}

TEST(CertificateTest, DescriptionIsOneLineWithSubjectIssuerAndExpiry) {
  const Issued anchor = issue({.commonName = "Anchor", .isAuthority = true});
  CertificatePlan plan;
  plan.commonName = "two\nlines";
  plan.notAfter = "20500101000000Z";
  EXPECT_EQ(issue(plan, &anchor).reference()->description(),
            "certificate \"CN=two\\0Alines\" issued by \"CN=Anchor\", valid until "
            "2050-01-01 00:00:00 +0000");
}

TEST(CertificateTest, ValuesHoldTheExpiryAsANumber) {
  CertificatePlan plan;
  plan.notAfter = "20500101000000Z";
  const std::optional<Dictionary> values =
      SecCertificateCopyValues(*issue(plan).reference(), kSecOIDX509V1ValidityNotAfter);
  ASSERT_TRUE(values);
  const auto entry = (*values)[kSecOIDX509V1ValidityNotAfter].dictionary();
  ASSERT_TRUE(entry);
  EXPECT_EQ((*entry)[kSecPropertyKeyValue], Value(2524608000.0 - Date::kReferenceDateSince1970));
}

TEST(CertificateTest, OtherKeysHaveNoValues) {
  const auto values = SecCertificateCopyValues(*issue({}).reference(), "2.5.4.3");
  ASSERT_TRUE(values);
  EXPECT_TRUE(values->empty());
}

}  // namespace
}  // namespace kvl::security
