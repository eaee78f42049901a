#include "platform/security/TrustEvaluation.h"
#include "tests/security/CertificateFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

namespace kvl::security {
namespace {

using kvltest::CertificatePlan;
using kvltest::issue;
using kvltest::Issued;

constexpr auto kLoopbackNames = "DNS:localhost,DNS:*.local.test,IP:127.0.0.1,IP:::1";

CertificatePlan authority(const std::string& name = "Anchor") {
  CertificatePlan plan;
  plan.commonName = name;
  plan.isAuthority = true;
  return plan;
}

CertificatePlan server() {
  CertificatePlan plan;
  plan.alternativeNames = kLoopbackNames;
  return plan;
}

struct Outcome {
  Status status = kSuccess;
  TrustResult result = TrustResult::invalid;
  std::int32_t code = -1;
  int error = -1;
};

Outcome evaluate(ServerTrust& trust) {
  Outcome outcome;
  outcome.status = trust.evaluate(outcome.result);
  EXPECT_EQ(trust.legacyResultCode(outcome.code),
            outcome.status == kSuccess ? kSuccess : errSecParam);
  outcome.error = trust.verifyError();
  return outcome;
}

Outcome evaluate(const std::vector<Data>& chain, const std::string& host,
                 const std::vector<CertificateRef>& anchors) {
  const auto trust = makeServerTrust(chain, host);
  EXPECT_EQ(trust->setAnchorCertificates(anchors), kSuccess);
  return evaluate(*trust);
}

void expectRefusal(const Outcome& outcome, TrustResult result, int error) {
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(outcome.result, result);
  EXPECT_EQ(outcome.error, error);
  EXPECT_NE(outcome.code, CSSMERR_APPLETP_HOSTNAME_MISMATCH);
}

class TrustTest : public testing::Test {
 protected:
  const Issued anchor_ = issue(authority());
  const std::vector<CertificateRef> anchors_{anchor_.reference()};

  Outcome evaluateServer(const CertificatePlan& plan, const std::string& host = "localhost") {
    return evaluate({issue(plan, &anchor_).der()}, host, anchors_);
  }
};

TEST_F(TrustTest, AcceptsWhatTheAnchorIssued) {
  const Outcome outcome = evaluateServer(server());
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(outcome.result, TrustResult::unspecified);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.error, X509_V_OK);
}

struct HostCase {
  const char* host;
  int error;
};

class TrustHostTest : public testing::TestWithParam<HostCase> {};

TEST_P(TrustHostTest, MatchesNamesByNameAndAddressesByAddress) {
  const Issued anchor = issue(authority());
  const Issued leaf = issue(server(), &anchor);
  const Outcome outcome = evaluate({leaf.der()}, GetParam().host, {anchor.reference()});
  EXPECT_EQ(outcome.status, kSuccess);
  EXPECT_EQ(outcome.error, GetParam().error);
  if (GetParam().error == X509_V_OK) {
    EXPECT_EQ(outcome.result, TrustResult::unspecified);
  } else {
    EXPECT_EQ(outcome.result, TrustResult::recoverableFailure);
    EXPECT_EQ(outcome.code, CSSMERR_APPLETP_HOSTNAME_MISMATCH);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, TrustHostTest,
    testing::Values(HostCase{"localhost", X509_V_OK}, HostCase{"LOCALHOST", X509_V_OK},
                    HostCase{"localhost.", X509_V_OK}, HostCase{"a.local.test", X509_V_OK},
                    HostCase{"127.0.0.1", X509_V_OK}, HostCase{"::1", X509_V_OK},
                    HostCase{"0:0:0:0:0:0:0:1", X509_V_OK},
                    HostCase{"a.b.local.test", X509_V_ERR_HOSTNAME_MISMATCH},
                    HostCase{"localhost.test", X509_V_ERR_HOSTNAME_MISMATCH},
                    HostCase{"ocalhost", X509_V_ERR_HOSTNAME_MISMATCH},
                    HostCase{"", X509_V_ERR_HOSTNAME_MISMATCH},
                    HostCase{".", X509_V_ERR_HOSTNAME_MISMATCH},
                    HostCase{"127.0.0.2", X509_V_ERR_IP_ADDRESS_MISMATCH},
                    HostCase{"::2", X509_V_ERR_IP_ADDRESS_MISMATCH}));

TEST_F(TrustTest, DoesNotTakeANameForAnAddress) {
  CertificatePlan plan = server();
  plan.commonName = "127.0.0.1";
  plan.alternativeNames = "DNS:127.0.0.1";
  const Outcome outcome = evaluateServer(plan, "127.0.0.1");
  EXPECT_EQ(outcome.error, X509_V_ERR_IP_ADDRESS_MISMATCH);
  EXPECT_EQ(outcome.code, CSSMERR_APPLETP_HOSTNAME_MISMATCH);
}

TEST_F(TrustTest, DoesNotTakeACommonNameForAHost) {
  CertificatePlan plan = server();
  plan.commonName = "localhost";
  plan.alternativeNames = "";
  const Outcome outcome = evaluateServer(plan, "localhost");
  EXPECT_EQ(outcome.error, X509_V_ERR_HOSTNAME_MISMATCH);
  EXPECT_EQ(outcome.code, CSSMERR_APPLETP_HOSTNAME_MISMATCH);
}

TEST_F(TrustTest, RefusesAnExpiredServerCertificate) {
  CertificatePlan plan = server();
  plan.endsIn = -60;
  expectRefusal(evaluateServer(plan), TrustResult::recoverableFailure, X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST_F(TrustTest, RefusesAServerCertificateThatIsNotYetValid) {
  CertificatePlan plan = server();
  plan.startsIn = 60;
  expectRefusal(evaluateServer(plan), TrustResult::recoverableFailure,
                X509_V_ERR_CERT_NOT_YET_VALID);
}

TEST_F(TrustTest, RefusesAnExpiredAnchorAndNamesItsDepth) {
  CertificatePlan plan = authority();
  plan.endsIn = -60;
  const Issued old = issue(plan);
  const auto trust = makeServerTrust({issue(server(), &old).der()}, "localhost");
  ASSERT_EQ(trust->setAnchorCertificates({old.reference()}), kSuccess);
  expectRefusal(evaluate(*trust), TrustResult::recoverableFailure, X509_V_ERR_CERT_HAS_EXPIRED);
  EXPECT_EQ((*trust->copyResult())["depth"].integer(), 1);
}

TEST_F(TrustTest, ChainFaultsComeBeforeTheHost) {
  CertificatePlan plan = server();
  plan.endsIn = -60;
  expectRefusal(evaluateServer(plan, "elsewhere.test"), TrustResult::recoverableFailure,
                X509_V_ERR_CERT_HAS_EXPIRED);
}

TEST_F(TrustTest, RefusesUnknownRoots) {
  const Issued other = issue(authority("Other"));
  const Issued leaf = issue(server(), &other);
  expectRefusal(evaluate({leaf.der()}, "localhost", anchors_), TrustResult::recoverableFailure,
                X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
  expectRefusal(evaluate({leaf.der(), other.der()}, "localhost", anchors_),
                TrustResult::recoverableFailure, X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN);
  expectRefusal(evaluate({issue(server()).der()}, "localhost", anchors_),
                TrustResult::recoverableFailure, X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
}

TEST_F(TrustTest, AnUnknownRootWithAWrongHostIsNoMereHostMismatch) {
  const Outcome outcome = evaluate({issue(server()).der()}, "elsewhere.test", anchors_);
  expectRefusal(outcome, TrustResult::recoverableFailure, X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
}

TEST_F(TrustTest, RefusesAnImpostorWithTheAnchorsName) {
  const Issued impostor = issue(authority());
  const Outcome outcome = evaluate({issue(server(), &impostor).der()}, "localhost", anchors_);
  EXPECT_NE(outcome.result, TrustResult::unspecified);
  EXPECT_NE(outcome.code, CSSMERR_APPLETP_HOSTNAME_MISMATCH);
}

TEST_F(TrustTest, RefusesAForgedSignatureForGood) {
  CertificatePlan plan = server();
  plan.isForged = true;
  for (const char* host : {"localhost", "elsewhere.test"})
    expectRefusal(evaluateServer(plan, host), TrustResult::fatalFailure,
                  X509_V_ERR_CERT_SIGNATURE_FAILURE);
}

TEST_F(TrustTest, RefusesAWrongPurposeForGood) {
  CertificatePlan plan = server();
  plan.extendedKeyUsage = "clientAuth";
  expectRefusal(evaluateServer(plan), TrustResult::fatalFailure, X509_V_ERR_INVALID_PURPOSE);
}

TEST_F(TrustTest, RefusesAWeakKeyForGood) {
  const Issued leaf = issue(server(), &anchor_, kvltest::rsaKey(1024));
  expectRefusal(evaluate({leaf.der()}, "localhost", anchors_), TrustResult::fatalFailure,
                X509_V_ERR_EE_KEY_TOO_SMALL);
}

TEST_F(TrustTest, AFatalFaultDecidesBeforeARecoverableOne) {
  CertificatePlan plan = server();
  plan.extendedKeyUsage = "clientAuth";
  plan.endsIn = -60;
  expectRefusal(evaluate({issue(plan).der()}, "elsewhere.test", anchors_),
                TrustResult::fatalFailure, X509_V_ERR_INVALID_PURPOSE);
}

TEST_F(TrustTest, RefusesAnIssuerThatIsNoAuthority) {
  const Issued leaf = issue(server(), &anchor_);
  CertificatePlan plan = server();
  plan.commonName = "below";
  const Issued below = issue(plan, &leaf);
  const Outcome outcome = evaluate({below.der(), leaf.der()}, "localhost", anchors_);
  EXPECT_EQ(outcome.result, TrustResult::fatalFailure);
  EXPECT_EQ(outcome.error, X509_V_ERR_INVALID_CA);
}

TEST_F(TrustTest, AnAnchorMayBeAnIntermediateOrTheServersOwnCertificate) {
  const Issued intermediate = issue(authority("Intermediate"), &anchor_);
  const Issued leaf = issue(server(), &intermediate);
  EXPECT_EQ(evaluate({leaf.der()}, "localhost", {intermediate.reference()}).result,
            TrustResult::unspecified);
  EXPECT_EQ(evaluate({leaf.der()}, "localhost", {leaf.reference()}).result,
            TrustResult::unspecified);
  EXPECT_EQ(evaluate({leaf.der(), intermediate.der()}, "localhost", anchors_).result,
            TrustResult::unspecified);
  const Issued alone = issue(server());
  EXPECT_EQ(evaluate({alone.der()}, "localhost", {alone.reference()}).result,
            TrustResult::unspecified);
}

TEST_F(TrustTest, CertificatesThatTheServerSendsAreNoAnchors) {
  const Issued other = issue(authority("Other"));
  const Issued intermediate = issue(authority("Intermediate"), &other);
  const Issued leaf = issue(server(), &intermediate);
  const Outcome outcome =
      evaluate({leaf.der(), intermediate.der(), other.der()}, "localhost", anchors_);
  EXPECT_EQ(outcome.error, X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN);
}

TEST_F(TrustTest, TrustsNothingWithoutAnchors) {
  const auto trust = makeServerTrust({issue(server(), &anchor_).der(), anchor_.der()}, "localhost");
  EXPECT_EQ(trust->setAnchorCertificates({}), errSecParam);
  EXPECT_EQ(trust->setAnchorCertificates({nullptr}), errSecParam);
  EXPECT_EQ(evaluate(*trust).result, TrustResult::recoverableFailure);
}

TEST_F(TrustTest, ARefusedSetOfAnchorsLeavesTheOneBefore) {
  const auto trust = makeServerTrust({issue(server(), &anchor_).der()}, "localhost");
  ASSERT_EQ(trust->setAnchorCertificates(anchors_), kSuccess);
  EXPECT_EQ(trust->setAnchorCertificates({nullptr, anchor_.reference()}), errSecParam);
  EXPECT_EQ(evaluate(*trust).result, TrustResult::unspecified);
}

TEST_F(TrustTest, NewAnchorsReplaceTheOldOnes) {
  const auto trust = makeServerTrust({issue(server(), &anchor_).der()}, "localhost");
  ASSERT_EQ(trust->setAnchorCertificates(anchors_), kSuccess);
  ASSERT_EQ(trust->setAnchorCertificates({issue(authority("Other")).reference()}), kSuccess);
  EXPECT_EQ(evaluate(*trust).error, X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
}

TEST_F(TrustTest, AnEvaluationThatIsImpossibleLeavesTheResultAlone) {
  TrustResult result = TrustResult::proceed;
  const auto empty = makeServerTrust({}, "localhost");
  EXPECT_EQ(empty->evaluate(result), errSecParam);
  const auto garbage = makeServerTrust({Data::fromText("garbage")}, "localhost");
  EXPECT_EQ(garbage->evaluate(result), errSecDecode);
  const auto half =
      makeServerTrust({issue(server(), &anchor_).der(), Data::fromText("garbage")}, "localhost");
  EXPECT_EQ(half->evaluate(result), errSecDecode);
  EXPECT_EQ(result, TrustResult::proceed);
}

TEST_F(TrustTest, TellsNothingBeforeAnEvaluation) {
  const auto trust = makeServerTrust({issue(server(), &anchor_).der()}, "localhost");
  std::int32_t code = 7;
  EXPECT_EQ(trust->legacyResultCode(code), errSecParam);
  EXPECT_EQ(code, 7);
  EXPECT_EQ(trust->copyResult(), std::nullopt);
  EXPECT_EQ(trust->verifyError(), X509_V_OK);
}

TEST_F(TrustTest, DescribesARefusalForTheLog) {
  CertificatePlan plan = server();
  plan.commonName = "Old Server";
  plan.endsIn = -60;
  const auto trust = makeServerTrust({issue(plan, &anchor_).der()}, "localhost");
  ASSERT_EQ(trust->setAnchorCertificates(anchors_), kSuccess);
  evaluate(*trust);
  const Dictionary result = trust->copyResult().value();
  EXPECT_EQ(result["result"].integer(), 5);
  EXPECT_EQ(result["error"].integer(), X509_V_ERR_CERT_HAS_EXPIRED);
  EXPECT_EQ(result["reason"].string(), "certificate has expired");
  EXPECT_EQ(result["depth"].integer(), 0);
  EXPECT_EQ(result["host"].string(), "localhost");
  EXPECT_EQ(result["subject"].string(), "CN=Old Server");
  EXPECT_EQ(result["issuer"].string(), "CN=Anchor");
}

TEST_F(TrustTest, GivesTheCertificatesInTheServersOrder) {
  const Issued leaf = issue(server(), &anchor_);
  const auto certificates = makeServerTrust({leaf.der(), anchor_.der()}, "a")->certificates();
  ASSERT_EQ(certificates.size(), 2U);
  EXPECT_EQ(certificates[0]->encoded(), leaf.der());
  EXPECT_EQ(certificates[1]->encoded(), anchor_.der());
}

}  // namespace
}  // namespace kvl::security
