// Writes JSON: checks whether JSON can hold a value, and writes it to a buffer that grows.
#include "platform/serialisation/JSONWriter.h"

#include "platform/core/UTF8.h"
#include "platform/core/ValueAccess.h"
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/OutputBuffer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace kvl {
namespace {

using detail::ValueAccess;

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
      return std::isfinite(ValueAccess::real(value));
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

constexpr std::size_t kLongestNumber = 32;
constexpr std::size_t kWord = sizeof(std::uint64_t);

bool needsEscape(char character) noexcept {
  return static_cast<unsigned char>(character) < 0x20 || character == '"' || character == '\\';
}

constexpr std::uint64_t eightTimes(unsigned char byte) noexcept {
  return std::uint64_t{0x0101010101010101} * byte;
}

// Whether one of the eight characters needs an escape. A byte of 128 or more does not: its highest
// bit takes it out of each of the three tests.
bool needsEscape(std::uint64_t word) noexcept {
  const auto hasZero = [](std::uint64_t bytes) {
    return (bytes - eightTimes(1)) & ~bytes & eightTimes(0x80);
  };
  const std::uint64_t control = (word - eightTimes(0x20)) & ~word & eightTimes(0x80);
  return (control | hasZero(word ^ eightTimes('"')) | hasZero(word ^ eightTimes('\\'))) != 0;
}

// Characters that are looked at together in longer text.
using Block = unsigned char __attribute__((vector_size(16)));
using BlockWords = std::uint64_t __attribute__((vector_size(16)));

bool needsEscape(Block block) noexcept {
  constexpr unsigned char kFirstPlain = 0x20;
  const auto special = (block < kFirstPlain) | (block == '"') | (block == '\\');
  const auto words = reinterpret_cast<BlockWords>(special);
  return (words[0] | words[1]) != 0;
}

template <class Characters>
Characters load(const char* text) noexcept {
  Characters characters;
  std::memcpy(&characters, text, sizeof characters);
  return characters;
}

// Copies text of at least so many characters, some of them twice, up to those that need an escape
// or a few before. Returns how many it has copied.
template <class Characters>
std::size_t copyPlainInSteps(char* out, std::string_view text) noexcept {
  const auto copyAt = [&](std::size_t position) {
    const auto characters = load<Characters>(text.data() + position);
    std::memcpy(out + position, &characters, sizeof characters);
    return !needsEscape(characters);
  };
  const std::size_t last = text.size() - sizeof(Characters);
  std::size_t copied = 0;
  for (; copied < last; copied += sizeof(Characters)) {
    if (!copyAt(copied)) return copied;
  }
  return copyAt(last) ? text.size() : copied;
}

// The same for any text.
std::size_t copyPlain(char* out, std::string_view text) noexcept {
  if (text.size() >= sizeof(Block)) return copyPlainInSteps<Block>(out, text);
  if (text.size() >= kWord) return copyPlainInSteps<std::uint64_t>(out, text);
  const auto* const special = std::ranges::find_if(text, [](char c) { return needsEscape(c); });
  return static_cast<std::size_t>(std::copy(text.begin(), special, out) - out);
}

// Writes the parts of JSON texts.
class JSONBuffer {
 public:
  [[nodiscard]] std::string_view text() const noexcept { return buffer_.text(); }

  void append(char character) { buffer_.append(character); }
  void append(std::string_view text) { buffer_.append(text); }
  void appendInteger(std::int64_t number);
  // The shortest text that gives the number back, as a real. @pre finite
  void appendReal(double number);
  // In quotes, with the escapes that JSON needs and no others.
  void appendString(std::string_view text);
  // The beginning of an entry, with what separates it from what is before.
  void appendKey(char separator, std::string_view key);

  // The text itself. Nothing else may be called then.
  [[nodiscard]] Data take() && { return std::move(buffer_).take(); }

 private:
  void appendEscaped(std::string_view text);
  void appendEscape(char character);

  serialisation::OutputBuffer buffer_;
};

void JSONBuffer::appendInteger(std::int64_t number) {
  char* const out = buffer_.reserve(kLongestNumber);
  buffer_.written(std::to_chars(out, out + kLongestNumber, number).ptr);
}

void JSONBuffer::appendReal(double number) {
  char* const out = buffer_.reserve(kLongestNumber);
  const char* const end = std::to_chars(out, out + kLongestNumber, number).ptr;
  buffer_.written(end);
  if (std::string_view(out, end).find_first_of(".e") == std::string_view::npos) append(".0");
}

inline void JSONBuffer::appendString(std::string_view text) {
  constexpr std::size_t kQuotes = 2;
  char* const out = buffer_.reserve(text.size() + kQuotes);
  out[0] = '"';
  const std::size_t plain = copyPlain(out + 1, text);
  buffer_.written(out + 1 + plain);
  if (plain < text.size()) appendEscaped(text.substr(plain));
  append('"');
}

inline void JSONBuffer::appendKey(char separator, std::string_view key) {
  constexpr std::size_t kPunctuation = 4;
  char* const out = buffer_.reserve(key.size() + kPunctuation);
  out[0] = separator;
  out[1] = '"';
  const std::size_t plain = copyPlain(out + 2, key);
  char* end = out + 2 + plain;
  if (plain < key.size()) {
    buffer_.written(end);
    appendEscaped(key.substr(plain));
    end = buffer_.reserve(2);
  }
  *end++ = '"';
  *end++ = ':';
  buffer_.written(end);
}

// The rest of a string from one of its characters that need an escape on, or a few before.
void JSONBuffer::appendEscaped(std::string_view text) {
  while (true) {
    const auto* const special = std::ranges::find_if(text, [](char c) { return needsEscape(c); });
    append(std::string_view(text.begin(), special));
    if (special == text.end()) return;
    appendEscape(*special);
    text = {special + 1, text.end()};
    char* const out = buffer_.reserve(text.size());
    const std::size_t plain = copyPlain(out, text);
    buffer_.written(out + plain);
    text.remove_prefix(plain);
  }
}

void JSONBuffer::appendEscape(char character) {
  constexpr std::string_view characters = "\"\\\b\f\n\r\t";
  constexpr std::string_view letters = "\"\\bfnrt";
  constexpr std::string_view hexDigits = "0123456789abcdef";
  append('\\');
  const std::size_t position = characters.find(character);
  if (position < letters.size()) return append(letters[position]);
  append("u00");
  append(hexDigits[static_cast<unsigned char>(character) >> 4]);
  append(hexDigits[character & 0xF]);
}

// Writes a value, or says why it cannot.
class JSONDocumentWriter {
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

bool JSONDocumentWriter::write(const Value& value) {
  using enum Value::Kind;
  switch (value.kind()) {
    case string:
      buffer_.appendString(ValueAccess::text(value));
      return true;
    case null:
      buffer_.append("null");
      return true;
    case boolean:
      buffer_.append(ValueAccess::integer(value) != 0 ? "true" : "false");
      return true;
    case integer:
      buffer_.appendInteger(ValueAccess::integer(value));
      return true;
    case real:
      return writeReal(ValueAccess::real(value));
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

bool JSONDocumentWriter::writeReal(double number) {
  if (!std::isfinite(number)) return fail("a number is not finite");
  buffer_.appendReal(number);
  return true;
}

bool JSONDocumentWriter::writeContainer(const Value& value) {
  if (depth_ == kMaximumJSONDepth) return fail("containers are nested too deeply");
  ++depth_;
  const bool written =
      value.kind() == Value::Kind::array ? writeElements(value) : writeEntries(value);
  --depth_;
  return written;
}

bool JSONDocumentWriter::writeElements(const Value& array) {
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

bool JSONDocumentWriter::writeEntries(const Value& dictionary) {
  char separator = '{';
  for (const auto& [key, value] : ValueAccess::entries(dictionary)) {
    buffer_.appendKey(std::exchange(separator, ','), key);
    if (!write(value)) return false;
  }
  if (separator == '{') buffer_.append('{');
  buffer_.append('}');
  return true;
}

std::optional<Data> unwritable(std::string_view problem, std::optional<Error>* error) {
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                          {{NSDebugDescriptionErrorKey, problem}}));
  return std::nullopt;
}

std::optional<Data> writeDocument(const Value& value, std::string_view& problem) {
  problem = "only an array or a dictionary can be a document";
  if (!isContainer(value)) return std::nullopt;
  JSONDocumentWriter writer;
  const bool isWritten = writer.write(value);
  problem = writer.problem();
  if (!isWritten) return std::nullopt;
  problem = "a string is not UTF-8";
  // Strings stand between quotes: all of them are UTF-8 if the whole text is.
  if (!core::isUTF8(writer.buffer().text())) return std::nullopt;
  return std::move(writer.buffer()).take();
}

constexpr std::string_view kOutOfMemory = "out of memory";

}  // namespace

bool isValidJSONObject(const Value& value) {
  return isContainer(value) && isValid(value, 0);
}

std::optional<Data> JSONFromValue(const Value& value, std::optional<Error>* error) {
  try {
    std::string_view problem;
    auto text = writeDocument(value, problem);
    if (!text) return unwritable(problem, error);
    storeError(error, std::nullopt);
    return text;
  } catch (const std::bad_alloc&) {
    return unwritable(kOutOfMemory, error);
  }
}

std::optional<Data> JSONIfValid(const Value& value, std::optional<Error>* error) {
  storeError(error, std::nullopt);
  try {
    std::string_view problem;
    return writeDocument(value, problem);
  } catch (const std::bad_alloc&) {
    return isValidJSONObject(value) ? unwritable(kOutOfMemory, error) : std::nullopt;
  }
}

}  // namespace kvl
