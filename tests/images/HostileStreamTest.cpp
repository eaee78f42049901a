// Hostile images from the service whose events the same session follows.
#include "tests/images/HostileFiles.h"
#include "tests/integration/DocumentsFixture.h"
#include "tests/integration/EventStreamFixture.h"

#include <local/KVLEncodingSession.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr auto kInterval = 100ms;
// Far less than the time that each of the images takes, and far more than a busy machine adds.
constexpr auto kLongestPause = 1500ms;

// One that is endless when it is opened, and one when it is drawn.
std::vector<std::string> served() {
  if (isLongRun()) return hostileNames();
  return {"23-many-scans.jpg", "05-nested-masks.svg"};
}

class HostileStreamTest : public EventStreamFixture {
 protected:
  void SetUp() override {
    offerNotary();
    startService({"--documents", hostileFolder().string()});
    establish();
    session->setDelegate(recorder);
    follow("interval=" + std::to_string(kInterval.count()));
  }

  // Fetches it as an image and draws it, as a host does that shows it.
  void show(const std::string& name) {
    KVLEncoding::imageFromSession(
        *session, KVLEncoding::RelativePath(name), {},
        [this](const std::shared_ptr<kvl::Image>& image, const kvl::URLResponseRef& response,
               const std::optional<kvl::Error>& error) {
          EXPECT_FALSE(error);
          EXPECT_NE(response, nullptr);
          if (!image) return done.signal();
          kvl::Image::rasterise(image, 1, [this, image](const kvl::Bitmap&) { done.signal(); });
        });
  }

  // From each event that was kept to the next.
  [[nodiscard]] std::chrono::milliseconds longestPause() const {
    const auto events = recorder->events();
    std::chrono::steady_clock::duration longest{};
    for (std::size_t i = 1; i < events.size(); ++i) {
      longest = std::max(longest, events[i].time - events[i - 1].time);
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(longest);
  }

  kvl::Semaphore done;
};

TEST_F(HostileStreamTest, EventsComeInTimeWhileImagesOfTheSameSessionTakeAllTheirTime) {
  ASSERT_TRUE(recorder->waitForNumber(10));
  std::fprintf(stderr, "without images: %lld ms\n", static_cast<long long>(longestPause().count()));
  const auto names = served();
  for (const auto& name : names) show(name);
  for (std::size_t i = 0; i < names.size(); ++i) serveMainQueue(done);
  const auto last = recorder->tally().last;
  ASSERT_TRUE(recorder->waitForNumber(last + 5));
  std::fprintf(stderr, "with %zu images: %lld ms\n", names.size(),
               static_cast<long long>(longestPause().count()));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_LT(longestPause(), kLongestPause);
  EXPECT_GE(log.count("image refused: "), names.size());
}

}  // namespace
