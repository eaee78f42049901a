// A host that is slower than the service holds it back: nothing is lost, and memory stays bounded.
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/ProcessFigures.h"

#include <local/platform/DispatchQueue.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr std::int64_t kEventSize = 1000;
constexpr std::int64_t kNumber = kSanitized ? 50'000 : 200'000;
// What may be under way: the loader's 4 MiB, a batch of events, and the buffers of the sockets.
constexpr std::int64_t kMostUnderWay = 48LL << 20;
static_assert(kSanitized || kEventSize * kNumber > 3 * kMostUnderWay);

class EventStreamPressureTest : public EventStreamFixture {
 protected:
  void SetUp() override {
    establishOver(Route::direct);
    recorder->setEventSize(kEventSize);
  }

  void follow(std::int64_t last) {
    EventStreamFixture::follow("then=silence&size=" + std::to_string(kEventSize) +
                               "&last=" + std::to_string(last));
  }

  // The processor time that the service has used, in ticks.
  [[nodiscard]] std::int64_t serviceTime() const {
    std::ifstream file("/proc/" + std::to_string(serviceId()) + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    for (int field = 3; field < 14; ++field) fields >> text;
    std::int64_t user = 0;
    std::int64_t system = 0;
    fields >> user >> system;
    return user + system;
  }

  // Returns when the service has stopped working. One that is merely starved has sent even less
  // than it could.
  void waitUntilServiceRests() const {
    constexpr int rounds = 5;
    auto before = serviceTime();
    for (int round = 0; round < rounds;) {
      std::this_thread::sleep_for(200ms);
      const auto now = serviceTime();
      round = now == before ? round + 1 : 0;
      before = now;
    }
  }

  // How many events the service has sent on the stream that ended.
  [[nodiscard]] std::int64_t eventsSent() const {
    constexpr std::string_view phrase = "a stream ends after ";
    const auto text = serviceLog();
    const auto start = text.find(phrase);
    std::int64_t number = -1;
    if (start == std::string::npos) return number;
    std::from_chars(text.data() + start + phrase.size(), text.data() + text.size(), number);
    return number;
  }
};

TEST_F(EventStreamPressureTest, SlowHostGetsEverythingInOrderAndInBoundedMemory) {
  const auto before = residentMemory();
  std::atomic<std::int64_t> most = before;
  const ScopedHook slow(recorder, [&most](KVLSession&, const Tally&) {
    std::this_thread::sleep_for(1ms);
    most = std::max(most.load(), residentMemory());
  });
  follow(kNumber);
  EXPECT_TRUE(recorder->waitForNumber(kNumber));
  EXPECT_TRUE(isUnbroken(recorder->tally(), kNumber));
  EXPECT_EQ(streamsOpened(), 1U);
  // The sanitizers' quarantine keeps what has been freed.
  if (!kSanitized) EXPECT_LT(most - before, kMostUnderWay);
}

TEST_F(EventStreamPressureTest, HostThatDoesNotReadHoldsTheServiceBack) {
  kvl::Semaphore blocked;
  kvl::Semaphore goOn;
  std::once_flag first;
  const ScopedHook hook(recorder, [&](KVLSession&, const Tally&) {
    std::call_once(first, [&] {
      blocked.signal();
      EXPECT_TRUE(goOn.waitFor(kPatience));
    });
  });
  follow(10 * kNumber);
  ASSERT_TRUE(blocked.waitFor(kPatience));
  waitUntilServiceRests();
  silenceNotary();
  endService();
  const auto sent = eventsSent();
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent * kEventSize, kMostUnderWay);
  goOn.signal();
  ASSERT_TRUE(states->waitFor(KVLSessionStateDisconnected));
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
  EXPECT_LE(tally.last, sent + 1);
}

// Other requests of the session do not wait for the stream's receiver to take more, only for the
// call that runs.
TEST_F(EventStreamPressureTest, RequestsAreAnsweredWhileTheServiceIsHeldBack) {
  const ScopedHook slow(recorder,
                        [](KVLSession&, const Tally&) { std::this_thread::sleep_for(5ms); });
  follow(10 * kNumber);
  ASSERT_TRUE(recorder->waitForCount(1));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(get("status").status(), 200);
  const auto tally = recorder->tally();
  EXPECT_TRUE(isUnbroken(tally, tally.last));
}

}  // namespace
