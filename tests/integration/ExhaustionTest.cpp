// Descriptors run out: everything fails as the error of what was asked for, and works again later.
#include "tests/integration/LocalService.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/Sanitized.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Image.h>
#include <local/platform/URLSession.h>

namespace {

using namespace kvltest;

class ExhaustionTest : public LocalService {};

TEST_F(ExhaustionTest, ASessionMadeWithoutDescriptorsRecovers) {
  offerNotary();
  startService();
  {
    const NoDescriptors none(kLeftToSanitizers);
    createSession();
    ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
    EXPECT_TRUE(get("status").error);
    // Told after the state.
    EXPECT_TRUE(waitUntil([this] {
      return session->progress()->state().localizedDescription == "Reconnecting\u2026";
    }));
    const auto ran = std::make_shared<kvl::Semaphore>();
    session->queue()->asyncAfter(std::chrono::milliseconds(1), [ran] { ran->signal(); });
    EXPECT_TRUE(ran->waitFor(kPatience));
  }
  session->enqueueNotarisation();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
  EXPECT_EQ(get("status").status(), 200);
}

TEST_F(ExhaustionTest, LoadsAndImagesWithoutDescriptorsFailAndWorkAgain) {
  offerNotary();
  startService();
  establish();
  const auto image = get("image");
  ASSERT_EQ(image.status(), 200);
  const auto other = kvl::URLSession::create({}, {});
  const auto domainOfFailure = [&other, url = "https://localhost:" + servicePort() + "/status"] {
    const auto failure = std::make_shared<std::optional<kvl::Error>>();
    const auto done = std::make_shared<kvl::Semaphore>();
    const auto take = [=](auto&&, auto&&, std::optional<kvl::Error> error) {
      *failure = std::move(error);
      done->signal();
    };
    other->dataTask(kvl::URLRequest(url), take)->resume();
    EXPECT_TRUE(done->waitFor(kPatience));
    return *failure ? std::string((*failure)->domain()) : "none";
  };
  {
    // The sanitizers' check of types takes some of its own.
    const NoDescriptors none(kvltest::kSanitized ? 8 : 0);
    EXPECT_EQ(kvl::Image::imageWithData(*image.data), nullptr);
  }
  {
    const NoDescriptors none;
    EXPECT_EQ(domainOfFailure(), kvl::NSPOSIXErrorDomain);
  }
  EXPECT_NE(kvl::Image::imageWithData(*image.data), nullptr);
  EXPECT_EQ(domainOfFailure(), kvl::NSURLErrorDomain);  // nobody vouches for the server
  EXPECT_EQ(get("status").status(), 200);
}

}  // namespace
