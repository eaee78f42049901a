// Events from the server's write to the delegate, beside bare libcurl: mutual TLS 1.3, server and
// client on a core each. KVL_ROUNDS turns (default 7) of a second each.
#include "bench/Contest.h"
#include "bench/RequestProbe.h"
#include "bench/TestFiles.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TestTLSServer.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

namespace {

using kvlbench::Contestant;
using kvlbench::Outcome;
using kvlbench::Outcomes;

void sleepUntil(double time) {
  timespec until{};
  until.tv_sec = static_cast<time_t>(time);
  until.tv_nsec = static_cast<long>((time - static_cast<double>(until.tv_sec)) * 1e9);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

std::string timeText() {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.7f", kvlbench::clockSeconds());
  return text.data();
}

// A server that writes so many events a second until the client has enough.
class FeedWorld {
 public:
  explicit FeedWorld(double perSecond)
      : server_(options(), [perSecond](kvl::testing::TestPeer& peer) { serve(peer, perSecond); }) {
    kvlbench::useClientCore();
  }

  [[nodiscard]] std::vector<double> numbersOf(const char* program, std::size_t count) const {
    return kvlbench::numbersOf(
        {program, "--folder", folder_.path().string(), "--port", std::to_string(server_.port())},
        folder_.path() / "probe.log", count);
  }
  [[nodiscard]] Outcome run(const Contestant& contestant) const {
    return kvlbench::runProbe(
        kvlbench::joined({contestant.program, "--folder", folder_.path().string(), "--port",
                          std::to_string(server_.port())},
                         contestant.arguments),
        folder_.path() / "probe.log");
  }

 private:
  kvl::testing::TestServerOptions options() const {
    kvlbench::useServerCore();
    return {.identity = &identities_.server, .clientAuthority = &identities_.authority};
  }
  static void serve(kvl::testing::TestPeer& peer, double perSecond) {
    if (peer.readRequest().empty()) return;
    peer.write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n");
    double next = kvlbench::clockSeconds();
    do {
      sleepUntil(next += 1 / perSecond);
    } while (peer.write("event: update\ndata: " + timeText() + "\n\n"));
  }

  const kvltest::TemporaryDirectory folder_;
  const kvlbench::TestFiles identities_{folder_.path()};
  const kvl::testing::TestTLSServer server_;
};

const Outcomes& outcomesAt(int perSecond) {
  static std::map<int, Outcomes> known;
  auto& outcomes = known[perSecond];
  if (!outcomes.empty()) return outcomes;
  const FeedWorld world(perSecond);
  const std::vector<std::string> count = {"--requests", std::to_string(perSecond)};
  const std::vector<Contestant> contestants = {{"ours", KVL_FEED_PROBE, count},
                                               {"curl", KVL_CURL_FEED_PROBE, count}};
  return outcomes = kvlbench::takeTurns(
             contestants, [&](const Contestant& contestant) { return world.run(contestant); });
}

// of_curl: in parts of bare libcurl's of the same turn.
void feed(benchmark::State& state, int perSecond, const std::string& name) {
  for ([[maybe_unused]] auto iteration : state) {
    const auto& outcomes = outcomesAt(perSecond);
    countBesideCurl(outcomes, name, state.counters);
    state.SetIterationTime(outcomes.at(name).front().median * 1e-6);
  }
}

// own_MiB: what a process takes more, of memory that it shares with nobody, once its session is
// there and has had the first event.
void idleSession(benchmark::State& state) {
  const FeedWorld world(2);
  std::vector<double> memory;
  std::vector<double> threads;
  for ([[maybe_unused]] auto iteration : state) {
    const auto numbers = world.numbersOf(KVL_IDLE_PROBE, 2);
    memory.push_back(numbers[0]);
    threads.push_back(numbers[1]);
    state.SetIterationTime(1);
  }
  state.counters["own_MiB"] = kvlbench::median(memory);
  state.counters["threads"] = kvlbench::median(threads);
}
BENCHMARK(idleSession)->UseManualTime()->Iterations(5);

}  // namespace

int main(int count, char** arguments) {
  for (const int perSecond : {200, 1000}) {
    for (const std::string name : {"ours", "curl"}) {
      const auto full = "feed/" + std::to_string(perSecond) + '/' + name;
      benchmark::RegisterBenchmark(full.c_str(), feed, perSecond, name)
          ->Iterations(1)
          ->UseManualTime()
          ->Unit(benchmark::kMicrosecond);
    }
  }
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
