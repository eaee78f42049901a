// Any bytes: another reader reads the same, and what is read is written and read back as the same.
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"
#include "tests/serialisation/JSONOracle.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

void writeAndReadBack(const kvl::Value& value) {
  require(kvl::isValidJSONObject(value), "what was read is no JSON object");
  const auto text = kvl::JSONFromValue(value, nullptr);
  require(text.has_value(), "what was read cannot be written");
  require(kvl::valueFromJSON(*text, nullptr) == value, "it reads back as something else");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const kvl::Data text(kvl::Bytes(data, data + size));
  const std::string difference = kvltest::differenceFromOracle(text.text());
  require(difference.empty(), difference.c_str());
  // Within an array, since only containers can be written.
  if (const auto value = kvl::valueFromJSON(text, nullptr)) writeAndReadBack(kvl::Array{*value});
  return 0;
}
