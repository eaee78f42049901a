// kvl_eventstream_soak: follows a stream at a steady rate for a while. It succeeds when no event
// was lost and memory stayed flat.
#include "tests/integration/EventStreamFixture.h"
#include "tests/support/ProcessFigures.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Options {
  std::int64_t seconds = 60;
  std::int64_t eventsPerSecond = 10'000;
};

Options& options() {
  static Options chosen;
  return chosen;
}

// Between two writes of the service.
constexpr std::chrono::milliseconds kInterval = 10ms;
constexpr std::int64_t kWritesPerSecond = 1s / kInterval;
// Buffers and pools have found their size when this part of the events has come; the last part of
// this size is the end.
constexpr std::int64_t kEnds = 5;
constexpr std::int64_t kSteps = 20;
// What a pile of events on a busy machine may leave in the allocator's pools. The events of five
// seconds would be more if they leaked.
constexpr std::int64_t kMostGrowth = 8LL << 20;

class EventStreamSoak : public EventStreamFixture {
 protected:
  // Waits for the events up to `last` in steps, and returns the least memory between them: a pile
  // that is worked off does not count, what stays for good does.
  [[nodiscard]] std::int64_t leastMemoryUntil(std::int64_t last) {
    auto least = std::numeric_limits<std::int64_t>::max();
    const auto start = recorder->tally().last;
    for (std::int64_t step = 1; step <= kSteps; ++step) {
      if (!recorder->waitForNumber(start + (last - start) * step / kSteps)) break;
      least = std::min(least, residentMemory());
    }
    return least;
  }
};

TEST_F(EventStreamSoak, LosesNothingAndKeepsMemoryFlat) {
  constexpr std::int64_t size = 100;
  const auto batch = std::max<std::int64_t>(1, options().eventsPerSecond / kWritesPerSecond);
  const auto number = batch * kWritesPerSecond * options().seconds;
  establishOver(Route::direct);
  recorder->setEventSize(size);
  const auto start = Clock::now();
  follow(kvl::format("size=%@&batch=%@&interval=%@&then=silence&last=%@", size, batch,
                     kInterval.count(), number));
  ASSERT_TRUE(recorder->waitForNumber(number / kEnds));
  const auto before = residentMemory();
  ASSERT_TRUE(recorder->waitForNumber(number - number / kEnds));
  const auto after = leastMemoryUntil(number);
  const std::chrono::duration<double> taken = Clock::now() - start;
  EXPECT_TRUE(isUnbroken(recorder->tally(), number));
  EXPECT_EQ(streamsOpened(), 1U);
  if (!kSanitized) EXPECT_LT(after - before, kMostGrowth);
  std::printf("%ld events, %.0f a second; memory %ld KiB after warm-up, %ld KiB at the end\n",
              number, static_cast<double>(number) / taken.count(), before >> 10, after >> 10);
}

}  // namespace

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  CLI::App app("Follows an event stream and watches memory");
  app.add_option("--seconds", options().seconds, "How long")
      ->check(CLI::Range(1, 86'400))
      ->capture_default_str();
  app.add_option("--events-per-second", options().eventsPerSecond, "How fast")
      ->check(CLI::Range(1, 1'000'000))
      ->capture_default_str();
  CLI11_PARSE(app, count, arguments);
  return RUN_ALL_TESTS();
}
