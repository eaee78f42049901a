#include "tests/session/FakeTrust.h"
#include "tests/session/SessionFixture.h"

namespace {

using namespace kvltest;
using kvl::ChallengeDisposition;
using kvl::TrustResult;

struct Answer {
  ChallengeDisposition disposition;
  kvl::CredentialRef credential;
};

class ChallengeTest : public SessionFixture {
 protected:
  ChallengeTest() {
    anchor = certificateEnding(queue->wallTime().adding(1e6));
    signature->setAnchor(anchor);
    create();
  }

  std::vector<Answer> challenge(std::string_view method, const std::string& host,
                                const kvl::TrustRef& serverTrust = nullptr) {
    std::vector<Answer> answers;
    session->didReceiveAuthenticationChallenge(
        {{host, 4321, std::string(method), serverTrust}},
        [&](ChallengeDisposition disposition, kvl::CredentialRef credential) {
          answers.push_back({disposition, std::move(credential)});
        });
    return answers;
  }

  std::vector<Answer> serverTrust(const std::string& host = "127.0.0.1") {
    return challenge(kvl::NSURLAuthenticationMethodServerTrust, host, trust);
  }

  void expectAccepted(const std::vector<Answer>& answers) {
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].disposition, ChallengeDisposition::useCredential);
    ASSERT_NE(answers[0].credential, nullptr);
    EXPECT_EQ(answers[0].credential->trust(), trust);
  }

  static void expectRefused(const std::vector<Answer>& answers, std::size_t times = 1) {
    ASSERT_EQ(answers.size(), times);
    for (const auto& answer : answers) {
      EXPECT_EQ(answer.disposition, ChallengeDisposition::rejectProtectionSpace);
      EXPECT_EQ(answer.credential, nullptr);
    }
  }

  kvl::CertificateRef anchor;
  const std::shared_ptr<KVLNotarySignature> signature = signatureFor("https://127.0.0.1:4321/");
  const std::shared_ptr<FakeTrust> trust = std::make_shared<FakeTrust>();
};

TEST_F(ChallengeTest, ServerTrustWithoutASignatureIsRefusedSilently) {
  expectRefused(serverTrust());
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(trust->evaluations, 0);
}

TEST_F(ChallengeTest, ServerTrustWithoutATrustObjectIsRefused) {
  establish(signature);
  expectRefused(challenge(kvl::NSURLAuthenticationMethodServerTrust, "127.0.0.1"));
}

TEST_F(ChallengeTest, TheSignaturesAnchorIsTheOnlyOne) {
  establish(signature);
  expectAccepted(serverTrust());
  EXPECT_EQ(trust->received, std::vector{anchor});
}

TEST_F(ChallengeTest, AnchorsThatCannotBeSetAreRefused) {
  establish(signature);
  trust->anchorStatus = kvl::errSecParam;
  expectRefused(serverTrust());
  EXPECT_EQ(trust->evaluations, 0);
}

TEST_F(ChallengeTest, ProceedAndUnspecifiedAreAccepted) {
  establish(signature);
  for (const auto result : {TrustResult::proceed, TrustResult::unspecified}) {
    trust->result = result;
    expectAccepted(serverTrust());
  }
}

TEST_F(ChallengeTest, EveryOtherOutcomeIsLoggedAndRefused) {
  establish(signature);
  for (const auto result :
       {TrustResult::invalid, static_cast<TrustResult>(2), static_cast<TrustResult>(3),
        TrustResult::recoverableFailure, TrustResult::fatalFailure, TrustResult::otherError}) {
    trust->result = result;
    expectRefused(serverTrust());
    EXPECT_EQ(log.lines().back(), "untrusted certificate: {why = because}");
  }
  const auto before = log.lines().size();
  trust->details.reset();
  expectRefused(serverTrust());
  EXPECT_EQ(log.lines().size(), before);
}

TEST_F(ChallengeTest, FailedEvaluationIsRefusedTwice) {
  establish(signature);
  trust->evaluationStatus = kvl::errSecParam;
  expectRefused(serverTrust(), 2);
  EXPECT_EQ(log.count("untrusted certificate: {why = because}"), 1U);
}

struct LegacyCase {
  kvl::SystemVersion version;
  std::string host;
  bool accepted;
};

TEST_F(ChallengeTest, HostNameMismatchIsAcceptedOnLoopbackBefore14Only) {
  establish(signature);
  trust->result = TrustResult::recoverableFailure;
  trust->code = kvl::CSSMERR_APPLETP_HOSTNAME_MISMATCH;
  const LegacyCase table[] = {
      {{13, 0}, "localhost", true},  {{13, 9}, "::1", true},      {{13, 6}, "127.0.0.1", true},
      {{14, 0}, "example", false},   {{15, 0}, "example", false}, {{13, 0}, "LOCALHOST", false},
      {{13, 0}, "127.0.0.2", false}, {{13, 0}, "example", false}, {{14, 0}, "localhost", false},
      {{14, 0}, "127.0.0.1", false}, {{15, 0}, "::1", false},
  };
  for (const auto& [version, host, accepted] : table) {
    kvl::setSystemVersion(version);
    const auto answers = serverTrust(host);
    if (accepted) {
      expectAccepted(answers);
      EXPECT_EQ(log.lines().back(), "legacy: accepting despite hostname mismatch") << host;
    } else {
      expectRefused(answers);
      EXPECT_EQ(log.lines().back(), "untrusted certificate: {why = because}") << host;
    }
  }
}

TEST_F(ChallengeTest, LegacyAcceptanceNeedsExactlyTheHostNameMismatch) {
  establish(signature);
  kvl::setSystemVersion({13, 0});
  trust->result = TrustResult::recoverableFailure;
  trust->code = 10;
  expectRefused(serverTrust());
  trust->code = kvl::CSSMERR_APPLETP_HOSTNAME_MISMATCH;
  trust->codeStatus = kvl::errSecParam;
  expectRefused(serverTrust());
  trust->codeStatus = kvl::kSuccess;
  trust->result = TrustResult::fatalFailure;
  expectRefused(serverTrust());
}

TEST_F(ChallengeTest, ClientCertificateIsAnsweredWithTheSignaturesCredential) {
  const auto client = certificateEnding(queue->wallTime().adding(100));
  const auto identity = std::make_shared<const kvl::Identity>(client, nullptr);
  signature->setClient(client);
  signature->setIdentity(identity);
  establish(signature);
  const auto answers = challenge(kvl::NSURLAuthenticationMethodClientCertificate, "127.0.0.1");
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(answers[0].disposition, ChallengeDisposition::useCredential);
  EXPECT_EQ(answers[0].credential->identity(), identity);
  EXPECT_EQ(answers[0].credential->certificates(), std::vector{client});
}

TEST_F(ChallengeTest, ClientCertificateWithoutACredentialIsLoggedAndRefused) {
  expectRefused(challenge(kvl::NSURLAuthenticationMethodClientCertificate, "127.0.0.1"));
  EXPECT_EQ(log.lines().back(), "\u2026no client certificate available for authentication");
  establish(signature);  // a signature without an identity
  expectRefused(challenge(kvl::NSURLAuthenticationMethodClientCertificate, "127.0.0.1"));
  EXPECT_EQ(log.lines().back(), "\u2026no client certificate available for authentication");
}

TEST_F(ChallengeTest, OtherMethodsGetDefaultHandling) {
  establish(signature);
  for (const auto method : {kvl::NSURLAuthenticationMethodHTTPBasic,
                            kvl::NSURLAuthenticationMethodHTTPDigest, std::string_view("")}) {
    const auto answers = challenge(method, "127.0.0.1");
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(answers[0].disposition, ChallengeDisposition::performDefaultHandling);
    EXPECT_EQ(answers[0].credential, nullptr);
  }
}

TEST_F(ChallengeTest, BothEntryPointsComeToTheSameDecision) {
  establish(signature);
  int answers = 0;
  const auto count = [&](ChallengeDisposition disposition, const kvl::CredentialRef&) {
    EXPECT_EQ(disposition, ChallengeDisposition::useCredential);
    ++answers;
  };
  const kvl::Challenge challenge{
      {"127.0.0.1", 1, std::string(kvl::NSURLAuthenticationMethodServerTrust), trust}};
  session->didReceiveChallenge(*loader, challenge, count);
  session->didReceiveAuthenticationChallenge(static_cast<const void*>(this), challenge, count);
  EXPECT_EQ(answers, 2);
}

}  // namespace
