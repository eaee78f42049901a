// The first icon of a process. The system has the decoder's libraries in memory: the first of the
// processes sees to that, and is not counted.
#include "bench/Measurement.h"
#include "tests/support/PrivateBus.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvlbench {
namespace {

constexpr int kProcesses = 20;

// What the probe says, in milliseconds.
double probe(const char* argument) {
  static const kvltest::TemporaryDirectory folder;
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  kvltest::ChildProcess process({KVL_IMAGE_PROBE, argument}, kvltest::environmentWith({}),
                                folder.path() / "probe.log", ends[1]);
  close(ends[1]);
  FILE* const output = fdopen(ends[0], "r");
  double time = 0;
  const int fields = std::fscanf(output, "%lf", &time);
  std::fclose(output);
  process.wait();
  if (fields != 1) throw std::runtime_error("the probe failed");
  return time;
}

void measure(benchmark::State& state, const char* argument) {
  std::vector<double> times;
  probe(argument);
  for ([[maybe_unused]] auto round : state) {
    times.push_back(probe(argument));
    state.SetIterationTime(times.back() * 1e-3);
  }
  std::ranges::sort(times);
  state.counters["median_ms"] = times[times.size() / 2];
  state.counters["worst_ms"] = times.back();
}

void firstIconCold(benchmark::State& state) {
  measure(state, "cold");
}
BENCHMARK(firstIconCold)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(kProcesses);

// What is left of that when the decoder has been there for a while.
void firstIconPrepared(benchmark::State& state) {
  measure(state, "prepared");
}
BENCHMARK(firstIconPrepared)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(kProcesses);

}  // namespace
}  // namespace kvlbench
