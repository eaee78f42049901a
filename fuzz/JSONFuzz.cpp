// Any bytes: another reader reads the same, and what is read is written and read back as the same.
#include "fuzz/Target.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"
#include "tests/serialisation/JSONOracle.h"

#include <string>

namespace {

using kvl::fuzz::require;

void writeAndReadBack(const kvl::Value& value) {
  require(kvl::isValidJSONObject(value), "what was read is a JSON object");
  const auto text = kvl::JSONFromValue(value, nullptr);
  require(text.has_value(), "what was read can be written");
  require(kvl::valueFromJSON(*text, nullptr) == value, "it reads back as the same");
}

void checkJSON(kvl::fuzz::Input input) {
  const kvl::Data text(kvl::Bytes(input.begin(), input.end()));
  const std::string difference = kvltest::differenceFromOracle(text.text());
  require(difference.empty(), difference.c_str());
  // Within an array, since only containers can be written.
  if (const auto value = kvl::valueFromJSON(text, nullptr)) writeAndReadBack(kvl::Array{*value});
}

const kvl::fuzz::Target json("json", checkJSON);

}  // namespace
