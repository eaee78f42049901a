// What loading the library takes, beside libcurl alone: from before exec to main, in turns; and the
// size of the library.
#include "bench/Contest.h"
#include "bench/RequestProbe.h"
#include "tests/support/PrivateBus.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr int kTurns = 100;

double secondsToMain(const char* program, const std::filesystem::path& log) {
  const double start = kvlbench::clockSeconds();
  return kvlbench::numbersOf({program}, log, 1).front() - start;
}

// time_of_curl: in parts of libcurl's of the same turn.
void loading(benchmark::State& state) {
  const kvltest::TemporaryDirectory folder;
  const auto log = folder.path() / "log";
  std::vector<double> ours;
  std::vector<double> ratios;
  for ([[maybe_unused]] auto iteration : state) {
    const double curl = secondsToMain(KVL_CURL_LOADING_PROBE, log);
    ours.push_back(secondsToMain(KVL_LOADING_PROBE, log));
    ratios.push_back(ours.back() / curl);
    state.SetIterationTime(ours.back());
  }
  state.counters["ms"] = kvlbench::median(ours) * 1e3;
  state.counters["time_of_curl"] = kvlbench::median(ratios);
}
BENCHMARK(loading)
    ->Name("loading/ours")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(kTurns);

void library(benchmark::State& state) {
  const kvltest::TemporaryDirectory folder;
  const auto stripped = folder.path() / "library";
  for ([[maybe_unused]] auto iteration : state) {
    kvltest::ChildProcess strip({"strip", "-o", stripped.string(), KVL_LIBRARY},
                                kvltest::environmentWith({}), folder.path() / "log");
    if (strip.wait() != 0) return state.SkipWithError("strip failed");
    state.SetIterationTime(1);
  }
  const auto size = static_cast<double>(std::filesystem::file_size(stripped));
  state.counters["stripped_MiB"] = size / (1 << 20);
}
BENCHMARK(library)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
