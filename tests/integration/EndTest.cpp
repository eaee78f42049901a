// The end of a session with a real key store, notary and service.
#include "platform/security/Operations.h"
#include "tests/integration/LocalService.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Semaphore.h>

#include <optional>
#include <vector>

namespace {

using namespace kvltest;

class EndTest : public LocalService {
 protected:
  [[nodiscard]] static bool areKeysStored() {
    std::vector<kvl::KeyRef> keys;
    return SecItemCopyMatching(*kvl::security::defaultKeyStore(), KVLNotary::keyQuery(), keys) ==
           kvl::kSuccess;
  }
  // Ends the session and waits until that is complete.
  void end() const {
    kvl::Semaphore ended;
    session->end([&](const std::optional<kvl::Error>& keyError) {
      EXPECT_EQ(keyError, std::nullopt);
      ended.signal();
    });
    ASSERT_TRUE(ended.waitFor(kPatience));
  }
};

TEST_F(EndTest, TheKeyStoreIsEmptyAfterwardsAndTheRequestsAreCancelled) {
  offerNotary();
  startService();
  establish();
  ASSERT_TRUE(areKeysStored());
  std::optional<kvl::Error> error;
  kvl::Semaphore answered;
  session->request(kvl::URLRequest("/slow?ms=60000"), [&](auto&&, auto&&, const auto& received) {
    error = received;
    answered.signal();
  });
  kvl::BodyReceiver pieces;
  kvl::Semaphore piecesEnded;
  std::optional<kvl::Error> piecesError;
  pieces.end = [&](const auto&, const std::optional<kvl::Error>& received) {
    piecesError = received;
    piecesEnded.signal();
  };
  session->requestPieces(kvl::URLRequest("/slow?ms=60000"), pieces);
  session->setEventStreamSource("/events?interval=500");
  log.clear();
  end();
  EXPECT_FALSE(areKeysStored());
  ASSERT_TRUE(answered.waitFor(kPatience) && piecesEnded.waitFor(kPatience));
  ASSERT_TRUE(error && piecesError);
  EXPECT_TRUE(error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_TRUE(piecesError->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_EQ(log.count("error"), 0U);
  const std::weak_ptr<KVLSession> watch = session;
  states.reset();
  session.reset();
  EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

TEST_F(EndTest, AnotherSessionOnTheSameNotaryIsEstablishedWithNewKeys) {
  offerNotary();
  startService();
  establish();
  const auto notary = session->notary();
  const auto before = notary->pemCertificateSigningRequest();
  end();
  session = KVLSession::sessionWithNotary(notary, {});
  EXPECT_EQ(session->waitUntilEstablished(kPatience), std::nullopt);
  EXPECT_EQ(get("/status").status(), 200);
  EXPECT_NE(notary->pemCertificateSigningRequest(), before);
  EXPECT_TRUE(areKeysStored());
  end();
  EXPECT_FALSE(areKeysStored());
}

}  // namespace
