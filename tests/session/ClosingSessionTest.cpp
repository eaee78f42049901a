// Requests that are in their handshake when the session loses its identity.
#include "tests/session/SessionFixture.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <map>

namespace {

using namespace kvltest;

class ClosingSessionTest : public SessionFixture {
 protected:
  ClosingSessionTest() {
    create();
    const auto signature = signatureFor(service.url("127.0.0.1"));
    signature->setAnchor(root.certificateRef());
    signature->setIdentity(client.identity());
    signature->setClient(client.certificateRef());
    notary->answer(signature);
    session->setSession(kvl::URLSession::create(session->configuration(), session));
  }

  void send() {
    session->request(kvl::URLRequest("document"),
                     [this](const auto&, const auto&, const std::optional<kvl::Error>& error) {
                       const kvl::MutexLock lock(mutex);
                       ++ended;
                       ++codes[error ? error->code() : 0];
                     });
  }

  const kvl::testing::TestIdentity root = kvl::testing::makeTestAuthority();
  const kvl::testing::TestIdentity server = kvl::testing::makeTestIdentity({}, &root);
  const kvl::testing::TestIdentity client =
      kvl::testing::makeTestIdentity({.commonName = "client"}, &root);
  const kvl::testing::TestTLSServer service{
      {.identity = &server, .clientAuthority = &root},
      kvl::testing::answering(kvl::testing::httpResponse(""))};
  kvl::Mutex mutex;
  int ended KVL_GUARDED_BY(mutex) = 0;
  std::map<std::int64_t, int> codes KVL_GUARDED_BY(mutex);
};

TEST_F(ClosingSessionTest, RequestsInTheirHandshakeAreCutOffAndBlameNoCertificate) {
  constexpr int kRequests = 200;
  for (int i = 0; i < kRequests; ++i) send();
  session->disconnectAfterError();
  EXPECT_TRUE(waitUntil([this] {
    const kvl::MutexLock lock(mutex);
    return ended == kRequests;
  }));
  const kvl::MutexLock lock(mutex);
  for (const auto& [code, count] : codes) {
    EXPECT_TRUE(code == 0 || code == kvl::NSURLErrorNetworkConnectionLost)
        << count << " of " << kRequests << " ended with " << code;
  }
  // Nothing that would make it ask for an identity once more.
  EXPECT_EQ(log.count("notarisation error from request; enqueuing reconnection"), 0U);
}

}  // namespace
