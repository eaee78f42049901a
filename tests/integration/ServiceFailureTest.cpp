// Whatever the service does, the session is established again once the cause is gone.
#include "tests/integration/LocalService.h"

#include <local/platform/SystemVersion.h>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class ServiceFailureTest : public LocalService {
 protected:
  ~ServiceFailureTest() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }
};

TEST_F(ServiceFailureTest, KilledServiceIsReachedAgainWhenItReturns) {
  offerNotary();
  startService();
  const auto port = servicePort();
  establish();
  ASSERT_EQ(get("status").status(), 200);
  stopService();
  const auto reply = get("status");
  EXPECT_TRUE(reply.failedWith(kvl::NSURLErrorCannotConnectToHost) ||
              reply.failedWith(kvl::NSURLErrorNetworkConnectionLost))
      << kvl::describe(reply.error);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  startService({"--port", port});
  EXPECT_EQ(get("status").status(), 200);
}

// The real delays, once: a second after the refusal the session has a new identity.
TEST_F(ServiceFailureTest, ServiceWithANewAuthorityIsTrustedAfterASecond) {
  offerNotary();
  startService();
  const auto port = servicePort();
  establish();
  ASSERT_EQ(get("status").status(), 200);
  stopService();
  startService({"--port", port, "--new-ca"});
  const auto refused = std::chrono::steady_clock::now();
  const auto reply = get("status");
  ASSERT_TRUE(reply.error);
  EXPECT_TRUE(KVLSession::isNotarisationError(reply.error)) << reply.error->description();
  EXPECT_GE(log.count("untrusted certificate: "), 1U);
  EXPECT_EQ(log.count("notarisation error from request; enqueuing reconnection"), 1U);
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, 2));
  EXPECT_GE(std::chrono::steady_clock::now() - refused, 1s);
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(ServiceFailureTest, ExpiredServerCertificateIsRefusedAndTheRenewedOneAccepted) {
  offerNotary();
  startService({"--expired"});
  const auto port = servicePort();
  establish();
  EXPECT_TRUE(get("status").failedWith(kvl::NSURLErrorServerCertificateHasBadDate));
  stopService();
  startService({"--port", port});
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, 2));
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(ServiceFailureTest, CertificateForAnotherNameIsRefused) {
  offerNotary();
  startService({"--server-name", "elsewhere.example"});
  establish();
  EXPECT_TRUE(get("status").failedWith(kvl::NSURLErrorServerCertificateUntrusted));
  EXPECT_GE(log.count("untrusted certificate: "), 1U);
}

TEST_F(ServiceFailureTest, CertificateForAnotherNameIsAcceptedOnLoopbackBefore14) {
  kvl::setSystemVersion({13, 0});
  offerNotary();
  startService({"--server-name", "elsewhere.example"});
  establish();
  EXPECT_EQ(get("status").status(), 200);
  EXPECT_GE(log.count("legacy: accepting despite hostname mismatch"), 1U);
}

TEST_F(ServiceFailureTest, ExpiredClientCertificateIsReportedAsRejected) {
  offerNotary("--lifetime -30");
  startService();
  establish();
  const auto reply = get("status");
  EXPECT_TRUE(reply.failedWith(kvl::NSURLErrorClientCertificateRejected))
      << kvl::describe(reply.error);
}

TEST_F(ServiceFailureTest, ResetInMidBodyIsAnErrorAndLeavesTheSession) {
  offerNotary();
  startService();
  establish();
  EXPECT_TRUE(get("reset").failedWith(kvl::NSURLErrorNetworkConnectionLost));
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(ServiceFailureTest, RedirectKeepsTheIdentityAtHomeOnly) {
  offerNotary();
  startService();
  establish();
  EXPECT_EQ(get("redirect?to=/status").status(), 200);
  // The same service under another host name must not be shown the identity.
  const auto elsewhere = "redirect?to=https://localhost:" + servicePort() + "/status";
  const auto reply = get(elsewhere);
  EXPECT_TRUE(reply.failedWith(kvl::NSURLErrorClientCertificateRequired))
      << kvl::describe(reply.error) << reply.body();
}

TEST_F(ServiceFailureTest, HTTPErrorsAreAnswersAndNotFailures) {
  offerNotary();
  startService();
  establish();
  for (const int status : {400, 401, 403, 404, 500, 503}) {
    const auto reply = get("code?status=" + std::to_string(status));
    EXPECT_FALSE(reply.error);
    EXPECT_EQ(reply.status(), status);
  }
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(ServiceFailureTest, EndOfTheEventStreamReconnects) {
  offerNotary();
  startService();
  establish();
  session->setEventStreamSource("status");  // any answer that ends
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
  session->setEventStreamSource("");
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, 2));
}

}  // namespace
