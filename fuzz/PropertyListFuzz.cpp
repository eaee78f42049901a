// A value made from any bytes: it is written exactly when it is valid, and a strict reader reads it
// back as it was.
#include "platform/serialisation/PropertyListWriter.h"
#include "tests/serialisation/MadeValue.h"
#include "tests/serialisation/PropertyListReader.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kvltest::ValueMaker maker({data, size}, kvltest::ValueMaker::Range::everything);
  const kvl::Value value = maker.value();
  std::optional<kvl::Error> error;
  const auto written = kvl::binaryPropertyListFromValue(value, &error);
  require(written.has_value() == kvl::isValidForBinaryPropertyList(value), "validity differs");
  require(written.has_value() != error.has_value(), "neither bytes nor an error, or both");
  if (!written) return 0;
  const auto read = kvltest::valueFromStrictPropertyList(written->bytes());
  require(read.has_value(), "the bytes are malformed");
  // Not compared as values: a number that is none equals nothing.
  require(read->description() == value.description(), "another value was read");
  require(kvl::binaryPropertyListFromValue(*read, nullptr) == written, "other bytes were written");
  return 0;
}
