// What a host's memory keeps of renewals.
#include "notary/ProcessReferences.h"
#include "platform/environment/Environment.h"
#include "tests/integration/LocalService.h"
#include "tests/support/Sanitized.h"

#include <malloc.h>

#include <atomic>

namespace {

using namespace kvltest;

class RenewalGrowthTest : public LocalService {
 protected:
  void SetUp() override {
    offerNotary();
    startService();
  }

  // A session that follows a source that the service does not know: each answer of 404 makes it
  // notarise anew, here without the pause of a second.
  void followNothing() {
    auto environment = std::make_shared<kvl::Environment>();
    environment->limits.reconnectionDelay = std::chrono::seconds(0);
    session = KVLSession::sessionWithNotary(std::make_shared<KVLNotary>(std::nullopt, environment),
                                            {}, environment);
    states = std::make_unique<StateWatcher>(*session);
    session->setEventStreamSource("/there/is/no/such/stream");
  }

  static std::size_t usedMemory() {
    malloc_trim(0);
    return mallinfo2().uordblks;
  }
};

TEST_F(RenewalGrowthTest, SourceThatIsNotFoundCostsACertificateForEachRenewal) {
  constexpr std::size_t kFirst = 50;
  constexpr std::size_t kRenewals = 150;
  // Some hundred bytes are a certificate; the first renewals also fill caches of the libraries.
  constexpr std::size_t kBytesForEach = 6144;
  std::atomic<std::size_t> signatures = 0;
  const auto sink = kvl::setLogSink([&signatures](std::string_view line) {
    if (line.starts_with("notary signature valid until")) ++signatures;
  });
  followNothing();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, kFirst));
  const std::size_t first = signatures;
  const std::size_t kept = kvl::notary::keptObjectCount();
  const std::size_t before = usedMemory();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished, kFirst + kRenewals));
  const std::size_t after = usedMemory();
  const std::size_t keptInTheEnd = kvl::notary::keptObjectCount();
  const std::size_t renewals = signatures - first;
  kvl::setLogSink(sink);
  // A certificate and an identity; those of one that was under way count in addition.
  EXPECT_LE(keptInTheEnd - kept, 2 * (renewals + 1));
  if (!kSanitized) EXPECT_LT(after, before + renewals * kBytesForEach);
}

}  // namespace
