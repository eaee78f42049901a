// Any bytes, cut in any way: the parser gives what the reference gives.
#include "tests/eventstream/ParserComparison.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

// The byte that ends a chunk; it is no part of UTF-8.
constexpr char kCut = '\xfe';

void compare(std::string_view input) {
  const kvltest::LogCapture silent;
  kvltest::ParserComparison parsers;
  while (!input.empty()) {
    const auto size = std::min(input.find(kCut), input.size());
    const auto difference = parsers.read(input.substr(0, size));
    if (!difference.empty()) {
      std::fprintf(stderr, "they differ: %s\n", difference.c_str());
      std::abort();
    }
    input.remove_prefix(std::min(size + 1, input.size()));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  compare({reinterpret_cast<const char*>(data), size});
  return 0;
}
