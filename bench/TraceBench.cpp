// What the trace's points cost while nobody observes it: the same requests with the points and with
// none compiled in. Ends with a failure when they cost more than one part in a hundred.
#include "bench/Measurement.h"
#include "platform/core/Trace.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TestTLSServer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

constexpr int kRequests = 200;
constexpr int kPoints = 5;  // of a request that makes a connection and is repeated
constexpr double kMostShare = 0.01;

double probe(const char* program, const std::string& url) {
  const std::string command =
      std::string("'") + program + "' '" + url + "' " + std::to_string(kRequests);
  FILE* output = popen(command.c_str(), "r");
  double seconds = 0;
  const int fields = std::fscanf(output, "%lf", &seconds);
  if (pclose(output) != 0 || fields != 1) throw std::runtime_error("the probe failed");
  return seconds;
}

// Seconds that one point takes while nobody observes.
double pointSeconds() {
  constexpr int kTimes = 10'000'000;
  const double start = kvlbench::cpuSeconds();
  for (int i = 0; i < kTimes; ++i) {
    kvl::core::trace([&] { return kvl::TraceRecord{.count = i}; });
    benchmark::ClobberMemory();
  }
  return (kvlbench::cpuSeconds() - start) / kTimes;
}

// of_untraced: requests a second of processor time, in parts of those without the points; on a
// machine that has other things to do, give or take some hundredths. share_of_points: what all
// points of a request take alone, in parts of the request.
void unobservedTrace(benchmark::State& state) {
  const kvl::testing::TestTLSServer server(
      {}, kvl::testing::answering(kvl::testing::httpResponse("x")));
  const auto url = server.url("127.0.0.1");
  double without = std::numeric_limits<double>::max();
  double with = without;
  for ([[maybe_unused]] auto iteration : state) {
    without = std::min(without, probe(KVL_UNTRACED_PROBE, url));
    const double seconds = probe(KVL_TRACE_PROBE, url);
    with = std::min(with, seconds);
    state.SetIterationTime(seconds);
  }
  const double share = kPoints * pointSeconds() / (with / kRequests);
  state.counters["of_untraced"] = without / with;
  state.counters["share_of_points"] = share;
  state.SetItemsProcessed(state.iterations() * kRequests);
  if (share <= kMostShare || kvltest::kSanitized) return;
  std::fprintf(stderr, "the trace's points cost too much: %f\n", share);
  std::exit(EXIT_FAILURE);
}
BENCHMARK(unobservedTrace)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

BENCHMARK_MAIN();
