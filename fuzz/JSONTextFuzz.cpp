// Any value as JSON text: it is printable UTF-8, the reader takes it for a document, and that holds
// what the value holds, each in what comes nearest.
#include "fuzz/Target.h"
#include "platform/formatting/RFC3339.h"
#include "platform/serialisation/JSONReader.h"
#include "tests/serialisation/MadeValue.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <algorithm>
#include <cmath>
#include <string>

namespace {

using kvl::fuzz::require;

bool holdsTheSame(const kvl::Value& read, const kvl::Value& written);

std::string dateText(kvl::Date date) {
  return kvl::formatting::rfc3339Formatter(kvl::formatting::SecondFraction::none)
      .stringFromDate(date);
}

bool sameReal(const kvl::Value& read, double written) {
  return std::isfinite(written) ? read.isNumber() && *read.real() == written : read.isNull();
}

bool sameArray(const kvl::Value& read, const kvl::Array& written) {
  const auto array = read.array();
  return array &&
         std::equal(array->begin(), array->end(), written.begin(), written.end(), holdsTheSame);
}

// Several keys that are no UTF-8 may be one as they are shown.
bool sameDictionary(const kvl::Value& read, const kvl::Dictionary& written) {
  const auto dictionary = read.dictionary();
  if (!dictionary) return false;
  const bool areShown =
      std::ranges::all_of(written, [](const auto& entry) { return kvl::isUTF8(entry.first); });
  if (areShown && dictionary->size() != written.size()) return false;
  return std::ranges::all_of(written, [&](const auto& entry) {
    const kvl::Value* found = dictionary->find(kvl::validUTF8(entry.first));
    return found != nullptr && (!areShown || holdsTheSame(*found, entry.second));
  });
}

bool holdsTheSame(const kvl::Value& read, const kvl::Value& written) {
  switch (written.kind()) {
    case kvl::Value::Kind::real:
      return sameReal(read, *written.real());
    case kvl::Value::Kind::date:
      return read.string() == dateText(*written.date());
    case kvl::Value::Kind::string:
      return read.string() == kvl::validUTF8(*written.string());
    case kvl::Value::Kind::data:
      return kvl::dataFromBase64(read.string().value_or("?")) == written.data();
    case kvl::Value::Kind::array:
      return sameArray(read, *written.array());
    case kvl::Value::Kind::dictionary:
      return sameDictionary(read, *written.dictionary());
    default:
      return read == written;
  }
}

bool isPrintable(std::string_view text) {
  return kvl::isUTF8(text) && kvl::printable(text) == text;
}

void checkJSONText(kvl::fuzz::Input input) {
  const auto value = kvltest::ValueMaker(input, kvltest::ValueMaker::Range::everything).value();
  const auto text = kvl::jsonText(value);
  require(isPrintable(text), "JSON text is a line of printable UTF-8");
  const auto read = kvl::valueFromJSON(kvl::Data::fromText(text), nullptr);
  require(read.has_value(), "JSON text is JSON");
  require(holdsTheSame(*read, value), "it holds what the value holds");
}

const kvl::fuzz::Target jsonTexts("jsontext", checkJSONText);

}  // namespace
