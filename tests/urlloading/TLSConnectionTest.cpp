// Handshakes whose questions are not answered in any of the foreseen ways.
#include "platform/urlloading/TLSConnection.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>

namespace kvl::testing {
namespace {

using security::ServerTrust;
using urlloading::ChallengeAnswer;
using urlloading::ChallengeSource;
using urlloading::TLSConnection;

using urlloading::ChallengeGate;
using urlloading::SteadyTime;
using urlloading::Undecided;

bool isMainThreadAsleep() {
  std::string state;
  std::getline(std::ifstream("/proc/self/task/" + std::to_string(getpid()) + "/stat"), state);
  return state.find(") S") != std::string::npos;
}

TEST(ChallengeGateTest, WaitsForAnAnswerHoweverLongItTakes) {
  const auto gate = std::make_shared<ChallengeGate>(nullptr);
  std::thread answering([handler = gate->handler()] {
    EXPECT_TRUE(kvltest::waitUntil(isMainThreadAsleep));
    handler(ChallengeDisposition::useCredential, nullptr);
  });
  const auto answer = gate->wait(SteadyTime::max());
  EXPECT_EQ(answer.disposition, ChallengeDisposition::useCredential);
  EXPECT_EQ(answer.undecided, std::nullopt);
  answering.join();
}

TEST(ChallengeGateTest, FirstAnswerCounts) {
  const auto gate = std::make_shared<ChallengeGate>(nullptr);
  const auto handler = gate->handler();
  handler(ChallengeDisposition::cancelChallenge, nullptr);
  handler(ChallengeDisposition::useCredential, nullptr);
  gate->abort();
  EXPECT_EQ(gate->wait(SteadyTime::max()).disposition, ChallengeDisposition::cancelChallenge);
}

TEST(ChallengeGateTest, HandlerThatIsDroppedUnusedRefuses) {
  const auto gate = std::make_shared<ChallengeGate>(nullptr);
  {
    auto handler = gate->handler();
    const auto copy = handler;
    handler = nullptr;
  }
  const auto answer = gate->wait(SteadyTime::max());
  EXPECT_EQ(answer.disposition, ChallengeDisposition::rejectProtectionSpace);
  EXPECT_EQ(answer.undecided, std::nullopt);
}

TEST(ChallengeGateTest, IsUndecidedOnceTheTimeIsOverAndStaysSo) {
  const auto gate = std::make_shared<ChallengeGate>(nullptr);
  const auto handler = gate->handler();
  EXPECT_EQ(gate->wait(std::chrono::steady_clock::now()).undecided, Undecided::timedOut);
  handler(ChallengeDisposition::useCredential, nullptr);
  EXPECT_EQ(gate->wait(SteadyTime::max()).undecided, Undecided::timedOut);
}

// Trusts every server, unless memory has run out.
class FrailSource final : public ChallengeSource {
 public:
  [[nodiscard]] std::string peerHost() const override { return "127.0.0.1"; }
  [[nodiscard]] ChallengeAnswer askServerTrust(const std::shared_ptr<ServerTrust>& trust) override {
    if (failsForTrust) throw std::bad_alloc();
    if (refusal) return {ChallengeDisposition::rejectProtectionSpace, nullptr, *refusal};
    return {ChallengeDisposition::useCredential, std::make_shared<const Credential>(trust)};
  }
  [[nodiscard]] ChallengeAnswer askClientCertificate() override {
    if (failsForIdentity) throw std::bad_alloc();
    return {ChallengeDisposition::useCredential, nullptr};
  }

  bool failsForTrust = false;
  std::optional<int> refusal;
  bool failsForIdentity = false;
};

class TLSConnectionTest : public ::testing::Test {
 protected:
  // Whether a handshake with `peer` succeeds.
  bool handshakes(const TestTLSServer& peer, bool detached = false) {
    SSL_CTX* const context = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    connection = TLSConnection::attach(context, source);
    if (detached) connection->detach();
    SSL* const ssl = SSL_new(context);
    BIO* const socket = BIO_new_connect(("127.0.0.1:" + std::to_string(peer.port())).c_str());
    SSL_set_bio(ssl, socket, socket);
    SSL_set_connect_state(ssl);
    const bool isMade = SSL_do_handshake(ssl) == 1;
    verifyResult = SSL_get_verify_result(ssl);
    SSL_free(ssl);
    SSL_CTX_free(context);
    return isMade;
  }

  const TestIdentity root = makeTestAuthority();
  const TestIdentity identity = makeTestIdentity({}, &root);
  // It accepts a client without a certificate.
  const TestTLSServer server{{.identity = &identity, .tlsVersion = TLS1_2_VERSION}, [](auto&) {}};
  FrailSource source;
  std::shared_ptr<TLSConnection> connection;
  long verifyResult = -1;
};

TEST_F(TLSConnectionTest, ServerThatIsTrustedIsConnectedTo) {
  EXPECT_TRUE(handshakes(server));
  EXPECT_TRUE(connection->facts().handshakeDone);
  EXPECT_TRUE(connection->facts().accepted);
  EXPECT_FALSE(connection->facts().certificateRequested);
  EXPECT_EQ(verifyResult, X509_V_OK);
}

TEST_F(TLSConnectionTest, ServerIsToldWhatIsWrongWithItsCertificate) {
  source.refusal = X509_V_ERR_CERT_HAS_EXPIRED;
  EXPECT_FALSE(handshakes(server));
  EXPECT_EQ(verifyResult, X509_V_ERR_CERT_HAS_EXPIRED);
  EXPECT_EQ(connection->facts().refusedVerdict, X509_V_ERR_CERT_HAS_EXPIRED);
  // Refused although no fault was found.
  source.refusal = X509_V_OK;
  EXPECT_FALSE(handshakes(server));
  EXPECT_EQ(verifyResult, X509_V_ERR_APPLICATION_VERIFICATION);
  EXPECT_EQ(connection->facts().refusedVerdict, X509_V_OK);
}

TEST_F(TLSConnectionTest, CredentialThatIsMissingOffersNone) {
  const TestTLSServer asking{{.identity = &identity, .clientAuthority = &root}, [](auto&) {}};
  EXPECT_TRUE(handshakes(asking));  // under TLS 1.3 the server refuses it only then
  EXPECT_TRUE(connection->facts().certificateRequested);
  EXPECT_FALSE(connection->facts().certificateOffered);
}

TEST_F(TLSConnectionTest, ServerIsRefusedWhenTheQuestionCannotBeAsked) {
  source.failsForTrust = true;
  EXPECT_FALSE(handshakes(server));
  EXPECT_FALSE(connection->facts().handshakeDone);
}

TEST_F(TLSConnectionTest, ServerIsRefusedWhenNobodyIsLeftToBeAsked) {
  EXPECT_FALSE(handshakes(server, true));
  EXPECT_FALSE(connection->facts().handshakeDone);
}

TEST_F(TLSConnectionTest, HandshakeEndsWhenTheIdentityCannotBeAskedFor) {
  const TestTLSServer asking{{.identity = &identity, .clientAuthority = &root}, [](auto&) {}};
  source.failsForIdentity = true;
  EXPECT_FALSE(handshakes(asking));
  EXPECT_TRUE(connection->facts().certificateRequested);
  EXPECT_FALSE(connection->facts().certificateOffered);
}

}  // namespace
}  // namespace kvl::testing
