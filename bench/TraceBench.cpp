// What the trace's points cost while nobody observes it: the same requests with the points and with
// none compiled in. Ends with a failure when they cost more than one part in a hundred.
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
constexpr double kLeast = 0.99;

double probe(const char* program, const std::string& url) {
  const std::string command =
      std::string("'") + program + "' '" + url + "' " + std::to_string(kRequests);
  FILE* output = popen(command.c_str(), "r");
  double seconds = 0;
  const int fields = std::fscanf(output, "%lf", &seconds);
  if (pclose(output) != 0 || fields != 1) throw std::runtime_error("the probe failed");
  return seconds;
}

// of_untraced: requests a second of processor time, in parts of those without the points. What else
// the machine does only ever adds to a run's time, so the least of each counts.
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
  const double ratio = without / with;
  state.counters["of_untraced"] = ratio;
  state.SetItemsProcessed(state.iterations() * kRequests);
  if (ratio >= kLeast || kvltest::kSanitized) return;
  std::fprintf(stderr, "the trace's points cost too much: %f\n", ratio);
  std::exit(EXIT_FAILURE);
}
BENCHMARK(unobservedTrace)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

BENCHMARK_MAIN();
