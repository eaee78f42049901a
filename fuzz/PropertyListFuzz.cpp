// A value made from any bytes: it is written exactly when it is valid, and a strict reader reads it
// back as it was.
#include "fuzz/Target.h"
#include "platform/serialisation/PropertyListWriter.h"
#include "tests/serialisation/MadeValue.h"
#include "tests/serialisation/PropertyListReader.h"

namespace {

using kvl::fuzz::require;

void checkPropertyList(kvl::fuzz::Input input) {
  kvltest::ValueMaker maker(input, kvltest::ValueMaker::Range::everything);
  const kvl::Value value = maker.value();
  std::optional<kvl::Error> error;
  const auto written = kvl::binaryPropertyListFromValue(value, &error);
  require(written.has_value() == kvl::isValidForBinaryPropertyList(value),
          "exactly what is valid is written");
  require(written.has_value() != error.has_value(), "there are either bytes or an error");
  if (!written) return;
  const auto read = kvltest::valueFromStrictPropertyList(written->bytes());
  require(read.has_value(), "the bytes are well formed");
  // Not compared as values: a number that is none equals nothing.
  require(read->description() == value.description(), "the same value is read");
  require(kvl::binaryPropertyListFromValue(*read, nullptr) == written,
          "the same bytes are written");
}

const kvl::fuzz::Target propertyList("propertylist", checkPropertyList);

}  // namespace
