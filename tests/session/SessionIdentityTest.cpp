// Identities and anchors as they change, against a service that says whose connection it is.
#include "tests/session/SessionFixture.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

namespace {

using namespace kvltest;
using kvl::testing::makeTestAuthority;
using kvl::testing::makeTestIdentity;
using kvl::testing::TestIdentity;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;

class SessionIdentityTest : public SessionFixture {
 protected:
  SessionIdentityTest() { create(); }

  // Brings a signature and, in place of the fake, an HTTPS session object as a host gets it.
  void notarised(const TestIdentity& client, const TestIdentity& anchor) {
    const auto signature = signatureFor(service.url("127.0.0.1"));
    signature->setAnchor(anchor.certificateRef());
    signature->setIdentity(client.identity());
    signature->setClient(client.certificateRef());
    session->enqueueNotarisation();
    notary->answer(signature);
    session->setSession(kvl::URLSession::create(session->configuration(), session));
  }

  class Answer {
   public:
    [[nodiscard]] kvl::DataTaskHandler handler() {
      return [this](const std::optional<kvl::Data>& body, const auto&,
                    const std::optional<kvl::Error>& error) {
        const kvl::MutexLock lock(mutex_);
        text_ = error ? std::to_string(error->code()) : std::string(body->text());
      };
    }
    [[nodiscard]] std::string wait() {
      EXPECT_TRUE(waitUntil([this] {
        const kvl::MutexLock lock(mutex_);
        return text_.has_value();
      }));
      const kvl::MutexLock lock(mutex_);
      return text_.value_or("none");
    }

   private:
    kvl::Mutex mutex_;
    std::optional<std::string> text_ KVL_GUARDED_BY(mutex_);
  };

  [[nodiscard]] std::string get(const std::string& path) {
    Answer answer;
    session->request(kvl::URLRequest(path), answer.handler());
    return answer.wait();
  }

  // Answers /held only when it is let go.
  void serve(TestPeer& peer) {
    for (auto request = peer.readRequest(); !request.empty(); request = peer.readRequest()) {
      const bool isHeld = request.starts_with("GET /held");
      if (isHeld) {
        holds = true;
        static_cast<void>(waitUntil([this] { return isLetGo.load(); }));
      }
      peer.write(kvl::testing::httpResponse(peer.clientSubject()));
    }
  }

  std::atomic<bool> holds = false;
  std::atomic<bool> isLetGo = false;
  const TestIdentity root = makeTestAuthority();
  const TestIdentity server = makeTestIdentity({}, &root);
  const TestIdentity first = makeTestIdentity({.commonName = "first"}, &root);
  const TestIdentity second = makeTestIdentity({.commonName = "second"}, &root);
  const TestTLSServer service{{.identity = &server, .clientAuthority = &root},
                              [this](TestPeer& peer) { serve(peer); }};
};

TEST_F(SessionIdentityTest, ARequestGoesOutUnderTheIdentityOfItsTime) {
  notarised(first, root);
  EXPECT_EQ(get("a"), "/CN=first");
  Answer held;
  session->request(kvl::URLRequest("held"), held.handler());
  ASSERT_TRUE(waitUntil([this] { return holds.load(); }));
  notarised(second, root);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(get("b"), "/CN=second");
  isLetGo = true;
  EXPECT_EQ(held.wait(), "/CN=first");
  EXPECT_EQ(get("c"), "/CN=second");
  EXPECT_EQ(service.connections(), 2);
  EXPECT_EQ(service.resumptions(), 0);
}

TEST_F(SessionIdentityTest, AServiceThatTheNewAnchorDoesNotVouchForGetsNothing) {
  notarised(first, root);
  EXPECT_EQ(get("a"), "/CN=first");
  const auto other = makeTestAuthority("other root");
  notarised(second, other);
  EXPECT_EQ(get("b"), std::to_string(kvl::NSURLErrorServerCertificateHasUnknownRoot));
  EXPECT_EQ(service.clientCertificates(), 1);
}

}  // namespace
