// Time from the start of a process to its first document, and the share of key generation in it.
#include "tests/support/PrivateBus.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace kvltest;

struct World {
  PrivateBus bus;
  ChildProcess service;

  World() {
    const auto state = (bus.directory() / "state").string();
    std::filesystem::create_directory(state);
    std::filesystem::permissions(state, std::filesystem::perms::owner_all);
    bus.startKeyring();
    bus.addService("korvale.vandrel.local.notary",
                   std::string(KVL_DEVNOTARY) + " --state " + state);
    service = ChildProcess({KVL_DEVSERVICE, "--state", state}, environmentWith({}),
                           bus.directory() / "service.log");
    while (!std::filesystem::exists(state + "/service.url")) std::this_thread::yield();
  }
};

double milliseconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

struct Sample {
  double total;       // from before the start of the process to its document
  double generation;  // of the key
};

Sample measure(const World& world) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const double start = milliseconds();
  ChildProcess probe({KVL_STARTUP_PROBE},
                     environmentWith({"DBUS_SESSION_BUS_ADDRESS=" + world.bus.address()}),
                     world.bus.directory() / "probe.log", ends[1]);
  close(ends[1]);
  FILE* output = fdopen(ends[0], "r");
  double finished = 0;
  Sample sample{};
  const int fields = std::fscanf(output, "%lf %lf", &finished, &sample.generation);
  std::fclose(output);
  probe.wait();
  if (fields != 2) throw std::runtime_error("the probe failed");
  sample.total = finished - start;
  return sample;
}

void processStartToFirstDocument(benchmark::State& state) {
  static const World world;
  double generation = 0;
  double rest = 0;
  double worst = 0;
  for ([[maybe_unused]] auto iteration : state) {
    const auto sample = measure(world);
    state.SetIterationTime(sample.total * 1e-3);
    generation += sample.generation;
    rest += sample.total - sample.generation;
    worst = std::max(worst, sample.total - sample.generation);
  }
  const auto count = static_cast<double>(state.iterations());
  state.counters["key_generation_ms"] = generation / count;
  state.counters["everything_else_ms"] = rest / count;
  state.counters["everything_else_worst_ms"] = worst;
}
BENCHMARK(processStartToFirstDocument)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(30);

}  // namespace

BENCHMARK_MAIN();
