// Any bytes, cut in any way: the parser gives what the reference gives.
#include "fuzz/Target.h"
#include "tests/eventstream/ParserComparison.h"

namespace {

// The byte that ends a chunk; it is no part of UTF-8.
constexpr char kChunkEnd = '\xfe';

void compareParsers(kvl::fuzz::Input bytes) {
  auto input = kvl::fuzz::textOf(bytes);
  const kvltest::LogCapture silent;
  kvltest::ParserComparison parsers;
  while (!input.empty()) {
    const auto size = std::min(input.find(kChunkEnd), input.size());
    const auto difference = parsers.read(input.substr(0, size));
    kvl::fuzz::require(difference.empty(), difference.c_str());
    input.remove_prefix(std::min(size + 1, input.size()));
  }
}

const kvl::fuzz::Target eventStream("eventstream", compareParsers);

}  // namespace
