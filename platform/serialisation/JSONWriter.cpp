#include "platform/serialisation/JSONWriter.h"

#include "platform/core/UTF8.h"
#include "platform/core/ValueAccess.h"
#include "platform/serialisation/JSONBuffer.h"
#include "platform/serialisation/JSONReader.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <string_view>

namespace kvl {
namespace {

using detail::ValueAccess;
using serialisation::JSONBuffer;

bool isContainer(const Value& value) {
  return value.kind() == Value::Kind::array || value.kind() == Value::Kind::dictionary;
}

bool isValid(const Value& value, std::size_t depth);

bool isValidDictionary(const Value& dictionary, std::size_t depth) {
  return std::ranges::all_of(ValueAccess::entries(dictionary), [depth](const auto& entry) {
    return core::isUTF8(entry.first) && isValid(entry.second, depth);
  });
}

bool isValidArray(const Value& array, std::size_t depth) {
  return std::ranges::all_of(ValueAccess::elements(array),
                             [depth](const Value& element) { return isValid(element, depth); });
}

// `depth` is the number of containers around the value.
bool isValid(const Value& value, std::size_t depth) {
  using enum Value::Kind;
  switch (value.kind()) {
    case null:
    case boolean:
    case integer:
      return true;
    case real:
      return std::isfinite(*value.real());
    case string:
      return core::isUTF8(ValueAccess::text(value));
    case array:
      return depth < kMaximumJSONDepth && isValidArray(value, depth + 1);
    case dictionary:
      return depth < kMaximumJSONDepth && isValidDictionary(value, depth + 1);
    case date:
    case data:
    case object:
      break;
  }
  return false;
}

// Writes a value, or says why it cannot.
class Writer {
 public:
  bool write(const Value& value);
  [[nodiscard]] std::string_view problem() const noexcept { return problem_; }
  JSONBuffer& buffer() noexcept { return buffer_; }

 private:
  bool fail(std::string_view problem) {
    problem_ = problem;
    return false;
  }
  bool writeReal(double number);
  bool writeContainer(const Value& value);
  bool writeElements(const Value& array);
  bool writeEntries(const Value& dictionary);

  JSONBuffer buffer_;
  std::size_t depth_ = 0;
  std::string_view problem_;
};

bool Writer::write(const Value& value) {
  using enum Value::Kind;
  switch (value.kind()) {
    case string:
      buffer_.appendString(ValueAccess::text(value));
      return true;
    case null:
      buffer_.append("null");
      return true;
    case boolean:
      buffer_.append(*value.boolean() ? "true" : "false");
      return true;
    case integer:
      buffer_.appendInteger(*value.integer());
      return true;
    case real:
      return writeReal(*value.real());
    case array:
    case dictionary:
      return writeContainer(value);
    case date:
    case data:
    case object:
      break;
  }
  return fail("a value is of a kind that JSON does not have");
}

bool Writer::writeReal(double number) {
  if (!std::isfinite(number)) return fail("a number is not finite");
  buffer_.appendReal(number);
  return true;
}

bool Writer::writeContainer(const Value& value) {
  if (depth_ == kMaximumJSONDepth) return fail("containers are nested too deeply");
  ++depth_;
  const bool written =
      value.kind() == Value::Kind::array ? writeElements(value) : writeEntries(value);
  --depth_;
  return written;
}

bool Writer::writeElements(const Value& array) {
  char separator = '[';
  for (const Value& element : ValueAccess::elements(array)) {
    buffer_.append(separator);
    separator = ',';
    if (!write(element)) return false;
  }
  if (separator == '[') buffer_.append('[');
  buffer_.append(']');
  return true;
}

bool Writer::writeEntries(const Value& dictionary) {
  char separator = '{';
  for (const auto& [key, value] : ValueAccess::entries(dictionary)) {
    buffer_.append(separator);
    separator = ',';
    buffer_.appendString(key);
    buffer_.append(':');
    if (!write(value)) return false;
  }
  if (separator == '{') buffer_.append('{');
  buffer_.append('}');
  return true;
}

std::optional<Data> fail(std::string_view problem, std::optional<Error>* error) {
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                          {{NSDebugDescriptionErrorKey, problem}}));
  return std::nullopt;
}

std::optional<Data> write(const Value& value, std::optional<Error>* error) {
  if (!isContainer(value)) return fail("only an array or a dictionary can be a document", error);
  Writer writer;
  if (!writer.write(value)) return fail(writer.problem(), error);
  // Strings stand between quotes: all of them are UTF-8 if the whole text is.
  if (!core::isUTF8(writer.buffer().text())) return fail("a string is not UTF-8", error);
  storeError(error, std::nullopt);
  return std::move(writer.buffer()).take();
}

}  // namespace

bool isValidJSONObject(const Value& value) {
  return isContainer(value) && isValid(value, 0);
}

std::optional<Data> JSONFromValue(const Value& value, std::optional<Error>* error) {
  try {
    return write(value, error);
  } catch (const std::bad_alloc&) {
    return fail("out of memory", error);
  }
}

}  // namespace kvl
