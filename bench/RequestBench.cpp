// Requests beside bare libcurl, libsoup and Qt: mutual TLS 1.3 to one nginx, client and server on a
// core each. Every contestant is a program of its own; they take turns, and ratios are of one turn.
// KVL_ROUNDS turns (default 7), each measured for KVL_REQUEST_SECONDS (default 0.4).
#include "bench/Contest.h"
#include "bench/RequestWorld.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <map>

namespace {

using kvlbench::Contestant;
using kvlbench::joined;
using kvlbench::middle;
using kvlbench::Outcome;
using kvlbench::Outcomes;
using kvlbench::ratio;

constexpr int kKilobyte = 1024;
constexpr std::size_t kConnections = 6;  // to one host, unless a host says otherwise
constexpr std::size_t kStreams = 100;

Outcome measure(const Contestant& contestant, int httpVersion,
                const std::vector<std::string>& arguments) {
  static kvlbench::RequestWorld world;
  const char* seconds = std::getenv("KVL_REQUEST_SECONDS");
  auto command = joined({contestant.program}, world.arguments(httpVersion));
  command = joined(joined(std::move(command), arguments), contestant.arguments);
  command = joined(std::move(command), {"--seconds", seconds != nullptr ? seconds : "0.4"});
  const std::size_t before = world.acceptedConnections();
  Outcome outcome = kvlbench::runProbe(command, world.folder() / "probe.log");
  outcome.connections = static_cast<double>(world.acceptedConnections() - before);
  return outcome;
}

Outcomes rounds(const std::vector<Contestant>& contestants, int httpVersion,
                const std::vector<std::string>& arguments) {
  return kvlbench::takeTurns(contestants, [&](const Contestant& contestant) {
    return measure(contestant, httpVersion, arguments);
  });
}

struct Cell {
  int httpVersion;
  std::size_t kilobytes;
  std::size_t inFlight;

  [[nodiscard]] std::string name() const {
    return "requests/HTTP" + std::to_string(httpVersion) + '/' + std::to_string(kilobytes) + "KB/" +
           std::to_string(inFlight);
  }
  [[nodiscard]] std::vector<std::string> arguments() const {
    return {"--size", std::to_string(kilobytes * kKilobyte), "--in-flight",
            std::to_string(inFlight)};
  }
};

// "curl" has the limits of the framework. At one in flight there is nothing to limit.
std::vector<Contestant> contestants(const Cell& cell) {
  const std::size_t limit = cell.httpVersion == 2 ? kStreams : kConnections;
  std::vector<Contestant> all = {
      {"ours", KVL_REQUEST_PROBE, {}},
      {"curl", KVL_CURL_PROBE, {"--limit", std::to_string(limit)}},
  };
  if (cell.inFlight > 1) all.push_back({"curlUnlimited", KVL_CURL_PROBE, {}});
#ifdef KVL_SOUP_PROBE
  all.push_back({"libsoup", KVL_SOUP_PROBE, {}});
#endif
#ifdef KVL_QT_PROBE
  all.push_back({"Qt", KVL_QT_PROBE, {}});
#endif
  return all;
}

// Measured when one of its contestants is asked for.
const Outcomes& outcomesOf(const Cell& cell) {
  static std::map<std::string, Outcomes> known;
  auto& outcomes = known[cell.name()];
  if (outcomes.empty()) outcomes = rounds(contestants(cell), cell.httpVersion, cell.arguments());
  return outcomes;
}

// Ratios are to libcurl with the same limits, and of the rate to everybody else, too.
void report(benchmark::State& state, const std::string& name, const Outcomes& outcomes) {
  const auto& of = outcomes.at(name);
  double connections = 0;
  for (const auto& outcome : of) connections = std::max(connections, outcome.connections);
  state.counters["per_second"] = middle(of, &Outcome::rate);
  countBesideCurl(outcomes, name, state.counters);
  state.counters["connections"] = connections;
  for (const auto& [other, theirs] : outcomes)
    state.counters["rate_of_" + other] = ratio(of, theirs, &Outcome::rate);
}

void request(benchmark::State& state, const Cell& cell, const std::string& name) {
  for ([[maybe_unused]] auto iteration : state) {
    const auto& outcomes = outcomesOf(cell);
    report(state, name, outcomes);
    state.SetIterationTime(outcomes.at(name).front().median * 1e-6);
  }
}

// of_100: what a request costs with 10,000 in line, in parts of what it costs with 100.
void growth(benchmark::State& state) {
  const std::vector<Contestant> lines = {
      {"100", KVL_REQUEST_PROBE, {"--in-flight", "100"}},
      {"10000", KVL_REQUEST_PROBE, {"--in-flight", "10000"}},
  };
  for ([[maybe_unused]] auto iteration : state) {
    const auto outcomes = rounds(lines, 1, {"--size", std::to_string(kKilobyte)});
    const auto& few = outcomes.at("100");
    const auto& many = outcomes.at("10000");
    state.counters["cpu_us"] = middle(many, &Outcome::processor);
    state.counters["cpu_of_100"] = ratio(many, few, &Outcome::processor);
    state.counters["time_of_100"] = ratio(few, many, &Outcome::rate);
    state.SetIterationTime(1 / middle(many, &Outcome::rate));
  }
}

// connections_of_limit: how many bursts open that come one after the other, in parts of the smaller
// of the limit and the burst.
void bursts(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::vector<Contestant> only = {
      {"ours", KVL_REQUEST_PROBE, {"--bursts", "11", "--in-flight", std::to_string(size)}}};
  for ([[maybe_unused]] auto iteration : state) {
    const auto outcomes = rounds(only, 1, {"--size", std::to_string(kKilobyte)});
    double connections = 0;
    for (const auto& outcome : outcomes.at("ours"))
      connections = std::max(connections, outcome.connections);
    state.counters["connections"] = connections;
    state.counters["connections_of_limit"] =
        connections / static_cast<double>(std::min(size, kConnections));
    state.SetIterationTime(middle(outcomes.at("ours"), &Outcome::median) * 1e-6);
  }
}

void once(benchmark::internal::Benchmark* benchmark) {
  benchmark->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

void registerAll() {
  for (const int version : {1, 2}) {
    for (const std::size_t kilobytes : {1, 100}) {
      for (const std::size_t inFlight : {1, 16, 256}) {
        const Cell cell{version, kilobytes, inFlight};
        for (const auto& one : contestants(cell)) {
          const auto name = cell.name() + '/' + one.name;
          once(benchmark::RegisterBenchmark(name.c_str(), request, cell, one.name));
        }
      }
    }
  }
  once(benchmark::RegisterBenchmark("requests/waiting/10000", growth));
  for (const int size : {2, 6, 30})
    once(benchmark::RegisterBenchmark("requests/bursts", bursts)->Arg(size));
}

}  // namespace

int main(int count, char** arguments) {
  registerAll();
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
