// Descriptors run out: everything fails as the error of what was asked for, and works again later.
#include "tests/integration/LocalService.h"
#include "tests/support/Sanitized.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/Image.h>
#include <local/platform/URLSession.h>

#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

namespace {

using namespace kvltest;

// With which sanitizers look at memory.
constexpr int kLeftToSanitizers = kSanitized ? 4 : 0;

// While it lives, the process gets no descriptor but those that are left.
class NoDescriptors {
 public:
  explicit NoDescriptors(int left = 0) {
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit few = before_;
    few.rlim_cur = kFew;
    setrlimit(RLIMIT_NOFILE, &few);
    for (int taken = 0; (taken = eventfd(0, EFD_CLOEXEC)) >= 0;) taken_.push_back(taken);
    EXPECT_EQ(errno, EMFILE);
    for (; left > 0; --left) {
      close(taken_.back());
      taken_.pop_back();
    }
  }
  ~NoDescriptors() {
    for (const int taken : taken_) close(taken);
    setrlimit(RLIMIT_NOFILE, &before_);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  static constexpr rlim_t kFew = 256;
  rlimit before_{};
  std::vector<int> taken_;
};

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
    const NoDescriptors none;
    EXPECT_EQ(kvl::Image::imageWithData(*image.data), nullptr);
    EXPECT_EQ(domainOfFailure(), kvl::NSPOSIXErrorDomain);
  }
  EXPECT_NE(kvl::Image::imageWithData(*image.data), nullptr);
  EXPECT_EQ(domainOfFailure(), kvl::NSURLErrorDomain);  // nobody vouches for the server
  EXPECT_EQ(get("status").status(), 200);
}

}  // namespace
