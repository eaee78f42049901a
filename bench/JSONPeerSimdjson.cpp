#include "bench/JSONPeer.h"

#include <benchmark/benchmark.h>
#include <simdjson.h>

namespace kvlbench {
namespace {

// A parser that is kept, so that its memory is there already.
class Simdjson final : public JSONPeer {
 public:
  void readAndDrop(const std::string& text) override {
    benchmark::DoNotOptimize(parser_.parse(text.data(), text.size(), false));
  }

 private:
  simdjson::dom::parser parser_;
};

const bool registered = compareReading(
    "simdjson", []() -> std::unique_ptr<JSONPeer> { return std::make_unique<Simdjson>(); });

}  // namespace
}  // namespace kvlbench
