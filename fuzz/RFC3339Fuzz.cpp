// Any text: it is a date exactly when the reference says so, and the same one; a date that was read
// is written so that it reads as the same. Any eight bytes: as a date they are written without
// harm.
#include "tests/formatting/ReferenceDates.h"

#include <local/KVLExtensionsDateFormatter.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using KVLExtensions::dateFromRFC3339;
using KVLExtensions::rfc3339;
using KVLExtensions::rfc3339nano;

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

// Dates beyond the years 0000 to 9999 have no text.
void writeAndRead(kvl::Date date, bool same) {
  const auto precise = rfc3339nano().stringFromDate(date);
  const auto whole = rfc3339().stringFromDate(date);
  require(precise.empty() == whole.empty(), "one formatter has a text and the other has none");
  if (precise.empty()) return;
  require(precise.substr(0, 19) + "Z" == whole, "the seconds differ");
  const auto read = dateFromRFC3339(precise);
  require(read && *read <= date, "the text is later than the date");
  require(!same || read == date, "the date reads back as another one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto date = dateFromRFC3339(text);
  require(date == kvltest::referenceDate(text), "the reference reads another date");
  if (date) writeAndRead(*date, true);
  double number = 0;
  if (size < sizeof number) return 0;
  std::memcpy(&number, data, sizeof number);
  writeAndRead(kvl::Date(number), false);
  return 0;
}
