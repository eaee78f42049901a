// Any text: it is a date exactly when the reference says so, and the same one; a date that was read
// is written so that it reads as the same. Any eight bytes: as a date they are written without
// harm.
#include "fuzz/Target.h"
#include "tests/formatting/ReferenceDates.h"

#include <local/KVLExtensionsDateFormatter.h>

#include <cstring>
#include <string>

namespace {

using kvl::fuzz::require;
using KVLExtensions::dateFromRFC3339;
using KVLExtensions::rfc3339;
using KVLExtensions::rfc3339nano;

// Dates beyond the years 0000 to 9999 have no text.
void writeAndRead(kvl::Date date, bool same) {
  const auto precise = rfc3339nano().stringFromDate(date);
  const auto whole = rfc3339().stringFromDate(date);
  require(precise.empty() == whole.empty(), "both formatters have a text or none has");
  if (precise.empty()) return;
  require(precise.substr(0, 19) + "Z" == whole, "the seconds are equal");
  const auto read = dateFromRFC3339(precise);
  require(read && *read <= date, "the text is no later than the date");
  require(!same || read == date, "the date reads back as the same");
}

void checkRFC3339(kvl::fuzz::Input input) {
  const auto text = kvl::fuzz::textOf(input);
  const auto date = dateFromRFC3339(text);
  require(date == kvltest::referenceDate(text), "the reference reads the same date");
  if (date) writeAndRead(*date, true);
  double number = 0;
  if (input.size() < sizeof number) return;
  std::memcpy(&number, input.data(), sizeof number);
  writeAndRead(kvl::Date(number), false);
}

const kvl::fuzz::Target rfc3339Dates("rfc3339", checkRFC3339);

}  // namespace
