// Names of hosts on both sides of 14.0, by the evaluation that connections use.
#include "tests/security/CertificateFactory.h"
#include "tests/session/SessionFixture.h"

namespace {

using namespace kvltest;
using kvl::ChallengeDisposition;

struct HostNameCase {
  std::string names;
  std::string host;
  bool before14;
  bool from14;
};

class HostNameTest : public SessionFixture {
 protected:
  HostNameTest() {
    create();
    const auto signature = signatureFor("https://127.0.0.1:4321/");
    signature->setAnchor(anchor.reference());
    establish(signature);
  }
  ~HostNameTest() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }

  static CertificatePlan authority() {
    CertificatePlan plan;
    plan.commonName = "Anchor";
    plan.isAuthority = true;
    return plan;
  }
  static CertificatePlan named(const std::string& names) {
    CertificatePlan plan;
    plan.alternativeNames = names;
    return plan;
  }

  bool isAccepted(const Issued& leaf, const std::string& host, kvl::SystemVersion version) {
    kvl::setSystemVersion(version);
    const auto trust = kvl::Trust::trustForServer({leaf.der()}, host);
    std::vector<ChallengeDisposition> answers;
    session->didReceiveAuthenticationChallenge(
        {{host, 4321, std::string(kvl::NSURLAuthenticationMethodServerTrust), trust}},
        [&](ChallengeDisposition disposition, const auto&) { answers.push_back(disposition); });
    EXPECT_EQ(answers.size(), 1U);
    return answers.front() == ChallengeDisposition::useCredential;
  }

  const Issued anchor = issue(authority());
};

TEST_F(HostNameTest, OfLoopbackIsForgivenBefore14AndNoOther) {
  const HostNameCase table[] = {
      {"DNS:localhost", "localhost", true, true},
      {"IP:127.0.0.1", "127.0.0.1", true, true},
      {"IP:::1", "::1", true, true},
      {"DNS:localhost", "LOCALHOST", true, true},
      {"DNS:localhost", "localhost.", true, true},
      {"DNS:*.a.test", "b.a.test", true, true},
      // Another name, at one of the three places.
      {"DNS:elsewhere.test", "localhost", true, false},
      {"DNS:localhost", "127.0.0.1", true, false},
      {"DNS:127.0.0.1", "127.0.0.1", true, false},
      {"IP:127.0.0.1", "::1", true, false},
      {"DNS:local*", "localhost", true, false},
      {"", "localhost", true, false},
      // The same at places that only look like one of them.
      {"DNS:elsewhere.test", "LOCALHOST", false, false},
      {"DNS:elsewhere.test", "localhost.", false, false},
      {"DNS:elsewhere.test", "localhost.test", false, false},
      {"DNS:elsewhere.test", "127.0.0.2", false, false},
      {"DNS:elsewhere.test", "127.1", false, false},
      {"DNS:elsewhere.test", "::ffff:127.0.0.1", false, false},
      {"DNS:elsewhere.test", "0:0:0:0:0:0:0:1", false, false},
      {"DNS:elsewhere.test", "", false, false},
      {"DNS:b*.a.test", "bcd.a.test", false, false},
      {"DNS:*", "a", false, false},
  };
  for (const auto& [names, host, before14, from14] : table) {
    const Issued leaf = issue(named(names), &anchor);
    EXPECT_EQ(isAccepted(leaf, host, {13, 9}), before14) << names << " for " << host;
    EXPECT_EQ(isAccepted(leaf, host, {14, 0}), from14) << names << " for " << host;
  }
}

TEST_F(HostNameTest, IsTheOnlyFaultThatIsEverForgiven) {
  CertificatePlan plan = named("DNS:elsewhere.test");
  EXPECT_FALSE(isAccepted(issue(plan), "localhost", {13, 0}));
  const Issued impostor = issue(authority());
  EXPECT_FALSE(isAccepted(issue(plan, &impostor), "localhost", {13, 0}));
  plan.endsIn = -60;
  EXPECT_FALSE(isAccepted(issue(plan, &anchor), "localhost", {13, 0}));
  plan.endsIn = 3600;
  plan.extendedKeyUsage = "clientAuth";
  EXPECT_FALSE(isAccepted(issue(plan, &anchor), "localhost", {13, 0}));
}

}  // namespace
