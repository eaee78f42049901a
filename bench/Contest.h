// Programs that do the same, in turns, and what they print of it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kvlbench {

struct Contestant {
  std::string name;
  std::string program;
  std::vector<std::string> arguments;
};

// Of one turn.
struct Outcome {
  double rate = 0;       // a second
  double median = 0;     // microseconds that one takes
  double slowest = 0;    // the 99th percentile of them
  double processor = 0;  // microseconds of processor time for one
  double connections = 0;
};

using Outcomes = std::map<std::string, std::vector<Outcome>>;

[[nodiscard]] std::vector<std::string> joined(std::vector<std::string> first,
                                              const std::vector<std::string>& second);

// So many numbers that the program prints.
// Throws std::runtime_error with its standard error when it fails.
[[nodiscard]] std::vector<double> numbersOf(const std::vector<std::string>& command,
                                            const std::filesystem::path& log, std::size_t count);
// What it prints is rate, median, slowest and processor, in this order.
[[nodiscard]] Outcome runProbe(const std::vector<std::string>& command,
                               const std::filesystem::path& log);

// All of them in each of KVL_ROUNDS rounds (default 7), another one first each time.
[[nodiscard]] Outcomes takeTurns(const std::vector<Contestant>& contestants,
                                 const std::function<Outcome(const Contestant&)>& run);

[[nodiscard]] double median(std::vector<double> values);
// The middle of all turns' figures, and of what they are in parts of the other's of the same turn.
[[nodiscard]] double middle(const std::vector<Outcome>& of, double Outcome::* figure);
[[nodiscard]] double ratio(const std::vector<Outcome>& of, const std::vector<Outcome>& to,
                           double Outcome::* figure);

// Notes a contestant's figures in a benchmark's counters, as they are and in parts of curl's.
template <class Counters>
void countBesideCurl(const Outcomes& outcomes, const std::string& name, Counters& counters) {
  const auto& of = outcomes.at(name);
  const auto& curl = outcomes.at("curl");
  const std::pair<const char*, double Outcome::*> figures[] = {
      {"p50", &Outcome::median}, {"p99", &Outcome::slowest}, {"cpu", &Outcome::processor}};
  for (const auto& [figure, place] : figures) {
    counters[std::string(figure) + "_us"] = middle(of, place);
    counters[std::string(figure) + "_of_curl"] = ratio(of, curl, place);
  }
}

// Where this thread and what it starts from now on may run, as long as there is more than one core.
void useServerCore();
void useClientCore();

}  // namespace kvlbench
