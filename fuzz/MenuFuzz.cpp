// Any descriptions, as JSON or made from the bytes: they build a menu in which everything holds.
#include "platform/serialisation/JSONReader.h"
#include "tests/presentation/MadeMenu.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace {

kvl::Value descriptionsOf(std::span<const std::uint8_t> bytes) {
  if (!bytes.empty() && bytes.front() == '[') {
    const kvl::Data text(kvl::Bytes(bytes.begin(), bytes.end()));
    if (const auto value = kvl::valueFromJSON(text, nullptr)) return *value;
  }
  return kvltest::madeDescriptions(bytes);
}

void check(const kvl::Value& descriptions) {
  for (const kvl::SystemVersion version : {kvl::SystemVersion{13, 0}, {14, 0}, {14, 4}}) {
    const auto fault = kvltest::faultOfMenu(descriptions, version);
    if (fault.empty()) continue;
    std::fprintf(stderr, "%s\n", fault.c_str());
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check(descriptionsOf({data, size}));
  return 0;
}
