// Any descriptions, as JSON or made from the bytes: they build a menu in which everything holds.
#include "fuzz/Target.h"
#include "platform/serialisation/JSONReader.h"
#include "tests/presentation/MadeMenu.h"

namespace {

kvl::Value descriptionsOf(kvl::fuzz::Input bytes) {
  if (!bytes.empty() && bytes.front() == '[') {
    const kvl::Data text(kvl::Bytes(bytes.begin(), bytes.end()));
    if (const auto value = kvl::valueFromJSON(text, nullptr)) return *value;
  }
  return kvltest::madeDescriptions(bytes);
}

void checkMenu(kvl::fuzz::Input input) {
  const auto descriptions = descriptionsOf(input);
  for (const kvl::SystemVersion version : {kvl::SystemVersion{13, 0}, {14, 0}, {14, 4}}) {
    const auto fault = kvltest::faultOfMenu(descriptions, version);
    kvl::fuzz::require(fault.empty(), fault.c_str());
  }
}

const kvl::fuzz::Target menu("menu", checkMenu);

}  // namespace
