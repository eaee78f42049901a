#include "bench/JSONPeer.h"

#include <benchmark/benchmark.h>

#include <boost/json/src.hpp>

namespace kvlbench {
namespace {

// Into memory that is released at once: quicker than one allocation for each value.
class Boost final : public JSONPeer {
 public:
  void readAndDrop(const std::string& text) override {
    boost::json::monotonic_resource memory;
    benchmark::DoNotOptimize(boost::json::parse(text, &memory));
  }
};

const bool registered = compareReading(
    "Boost.JSON", []() -> std::unique_ptr<JSONPeer> { return std::make_unique<Boost>(); });

}  // namespace
}  // namespace kvlbench
