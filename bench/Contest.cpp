#include "bench/Contest.h"

#include "tests/support/PrivateBus.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace kvlbench {
namespace {

void useCore(unsigned core) {
  if (std::thread::hardware_concurrency() <= core) return;
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

}  // namespace

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::vector<double> numbersOf(const std::vector<std::string>& command,
                              const std::filesystem::path& log, std::size_t count) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  kvltest::ChildProcess probe(command, kvltest::environmentWith({}), log, ends[1]);
  close(ends[1]);
  FILE* output = fdopen(ends[0], "r");
  std::vector<double> numbers;
  for (double number = 0; std::fscanf(output, "%lf", &number) == 1;) numbers.push_back(number);
  std::fclose(output);
  probe.wait();
  if (numbers.size() == count) return numbers;
  std::ifstream text(log);
  throw std::runtime_error(command.front() +
                           " failed: " + std::string(std::istreambuf_iterator<char>(text), {}));
}

Outcome runProbe(const std::vector<std::string>& command, const std::filesystem::path& log) {
  const auto numbers = numbersOf(command, log, 4);
  return {.rate = numbers[0], .median = numbers[1], .slowest = numbers[2], .processor = numbers[3]};
}

Outcomes takeTurns(const std::vector<Contestant>& contestants,
                   const std::function<Outcome(const Contestant&)>& run) {
  const char* rounds = std::getenv("KVL_ROUNDS");
  const std::size_t count = rounds != nullptr ? std::stoul(rounds) : 7;
  Outcomes outcomes;
  for (std::size_t round = 0; round < count; ++round) {
    for (std::size_t i = 0; i < contestants.size(); ++i) {
      const auto& contestant = contestants[(i + round) % contestants.size()];
      outcomes[contestant.name].push_back(run(contestant));
    }
  }
  return outcomes;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

double middle(const std::vector<Outcome>& of, double Outcome::* figure) {
  std::vector<double> values;
  for (const auto& outcome : of) values.push_back(outcome.*figure);
  return median(values);
}

double ratio(const std::vector<Outcome>& of, const std::vector<Outcome>& to,
             double Outcome::* figure) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < of.size(); ++i) ratios.push_back(of[i].*figure / to[i].*figure);
  return median(ratios);
}

void useServerCore() {
  useCore(0);
}

void useClientCore() {
  useCore(1);
}

}  // namespace kvlbench
