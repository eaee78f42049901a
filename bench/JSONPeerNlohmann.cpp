#include "bench/JSONPeer.h"

#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>

namespace kvlbench {
namespace {

class Nlohmann final : public JSONPeer {
 public:
  void readAndDrop(const std::string& text) override {
    benchmark::DoNotOptimize(nlohmann::json::parse(text));
  }
};

const bool registered = compareReading(
    "nlohmann", []() -> std::unique_ptr<JSONPeer> { return std::make_unique<Nlohmann>(); });

}  // namespace
}  // namespace kvlbench
