// Which names of a certificate are names of the host.
#include "platform/security/TrustEvaluation.h"
#include "tests/security/CertificateFactory.h"
#include "tests/support/PrivateBus.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace kvl::security {
namespace {

using kvltest::CertificatePlan;
using kvltest::issue;
using kvltest::Issued;

CertificatePlan anchorNamed(const std::string& name) {
  CertificatePlan plan;
  plan.commonName = name;
  plan.isAuthority = true;
  return plan;
}

struct NameCase {
  const char* names;
  const char* host;
  bool matches;
};

class TrustNamesTest : public testing::TestWithParam<NameCase> {};

TEST_P(TrustNamesTest, FollowsTheRules) {
  const Issued anchor = issue(anchorNamed("Anchor"));
  CertificatePlan plan;
  plan.commonName = GetParam().host;  // counts for nothing
  plan.alternativeNames = GetParam().names;
  const auto trust = makeServerTrust({issue(plan, &anchor).der()}, GetParam().host);
  ASSERT_EQ(trust->setAnchorCertificates({anchor.reference()}), kSuccess);
  auto result = TrustResult::invalid;
  ASSERT_EQ(trust->evaluate(result), kSuccess);
  EXPECT_EQ(result, GetParam().matches ? TrustResult::unspecified : TrustResult::recoverableFailure)
      << GetParam().names << " for " << GetParam().host;
}

constexpr NameCase kNameCases[] = {
    {"DNS:a.test", "a.test", true},
    {"DNS:A.tEST", "a.Test", true},
    {"DNS:a.test", "a.test.", true},
    {"DNS:a.test", "a.test..", false},
    {"DNS:b.test,DNS:a.test", "a.test", true},
    {"DNS:a.test", "b.a.test", false},
    {"DNS:.a.test", "b.a.test", false},
    {"DNS:b.a.test", "a.test", false},
    {"DNS:a.test.b", "a.test", false},
    // A wildcard stands for the whole of the first part.
    {"DNS:*.a.test", "b.a.test", true},
    {"DNS:*.a.test", "a.test", false},
    {"DNS:*.a.test", "c.b.a.test", false},
    {"DNS:*.a.test", ".a.test", false},
    {"DNS:b.a.test", ".a.test", false},
    {"DNS:b*.a.test", "bcd.a.test", false},
    {"DNS:*d.a.test", "bcd.a.test", false},
    {"DNS:b*d.a.test", "bcd.a.test", false},
    {"DNS:b.*.test", "b.a.test", false},
    {"DNS:*", "localhost", false},
    {"DNS:*.test", "a.test", false},
    {"DNS:local*", "localhost", false},
    {"DNS:*.0.0.1", "127.0.0.1", false},
    // An address is no name, and a name no address.
    {"IP:127.0.0.1", "127.0.0.1", true},
    {"DNS:127.0.0.1", "127.0.0.1", false},
    {"IP:127.0.0.1", "localhost", false},
    {"IP:127.0.0.1", "127.1", false},
    {"DNS:localhost", "127.0.0.1", false},
    {"IP:127.0.0.1", "::ffff:127.0.0.1", false},
    {"IP:::1", "::1", true},
    {"IP:::1", "0:0:0:0:0:0:0:1", true},
    {"IP:::1", "127.0.0.1", false},
    {"URI:https://a.test/", "a.test", false},
    {"email:me@a.test", "a.test", false},
    {"", "a.test", false},
};

INSTANTIATE_TEST_SUITE_P(Names, TrustNamesTest, testing::ValuesIn(kNameCases));

// The variables by which OpenSSL finds what the system trusts.
class SystemAnchors {
 public:
  explicit SystemAnchors(const Issued& anchor) {
    std::ofstream(folder_.path() / "anchors.pem") << anchor.pem();
    setenv("SSL_CERT_FILE", (folder_.path() / "anchors.pem").c_str(), 1);
    setenv("SSL_CERT_DIR", folder_.path().c_str(), 1);
  }
  ~SystemAnchors() {
    unsetenv("SSL_CERT_FILE");
    unsetenv("SSL_CERT_DIR");
  }
  SystemAnchors(const SystemAnchors&) = delete;
  SystemAnchors& operator=(const SystemAnchors&) = delete;

 private:
  const kvltest::TemporaryDirectory folder_;
};

TEST(SystemAnchorsTest, CountForNothing) {
  const Issued anchor = issue(anchorNamed("Anchor"));
  const Issued everybodys = issue(anchorNamed("Everybody's"));
  const SystemAnchors installed(everybodys);
  // That is how others find it.
  const OpenSSLPtr<X509_STORE> store(X509_STORE_new());
  ASSERT_EQ(X509_STORE_set_default_paths(store.get()), 1);
  CertificatePlan plan;
  plan.alternativeNames = "DNS:localhost";
  const Issued leaf = issue(plan, &everybodys);
  const OpenSSLPtr<X509_STORE_CTX> others(X509_STORE_CTX_new());
  X509_STORE_CTX_init(others.get(), store.get(), leaf.certificate.get(), nullptr);
  ASSERT_EQ(X509_verify_cert(others.get()), 1);

  for (const auto& chain : {std::vector{leaf.der()}, std::vector{leaf.der(), everybodys.der()}}) {
    const auto trust = makeServerTrust(chain, "localhost");
    ASSERT_EQ(trust->setAnchorCertificates({anchor.reference()}), kSuccess);
    auto result = TrustResult::invalid;
    EXPECT_EQ(trust->evaluate(result), kSuccess);
    EXPECT_EQ(result, TrustResult::recoverableFailure);
  }
}

}  // namespace
}  // namespace kvl::security
