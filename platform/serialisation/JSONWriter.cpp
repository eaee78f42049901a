// Writes JSON: checks whether JSON can hold a value, and writes it to a buffer that grows.
#include "platform/serialisation/JSONWriter.h"

#include "platform/core/LargeMemory.h"
#include "platform/core/UTF8.h"
#include "platform/core/ValueAccess.h"
#include "platform/serialisation/JSONReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

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

constexpr std::size_t kSmallestBuffer = 256;
constexpr std::size_t kLongestNumber = 32;
constexpr std::size_t kWord = sizeof(std::uint64_t);

bool needsEscape(char character) noexcept {
  return static_cast<unsigned char>(character) < 0x20 || character == '"' || character == '\\';
}

std::uint64_t loadWord(const char* text) noexcept {
  std::uint64_t word;
  std::memcpy(&word, text, kWord);
  return word;
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

// Copies text up to eight characters at a time. False if some of it needs an escape.
bool copyPlain(char* out, std::string_view text) noexcept {
  if (text.size() < kWord) {
    for (const char character : text) {
      if (needsEscape(character)) return false;
      *out++ = character;
    }
    return true;
  }
  const std::size_t last = text.size() - kWord;
  for (std::size_t i = 0; i < last; i += kWord) {
    const std::uint64_t word = loadWord(text.data() + i);
    if (needsEscape(word)) return false;
    std::memcpy(out + i, &word, kWord);
  }
  const std::uint64_t word = loadWord(text.data() + last);
  std::memcpy(out + last, &word, kWord);
  return !needsEscape(word);
}

// Text that grows while it is written.
class JSONBuffer {
 public:
  [[nodiscard]] std::string_view text() const noexcept { return {start_.get(), size_}; }

  void append(char character) { *reserve(1) = character, ++size_; }
  void append(std::string_view text);
  void appendInteger(std::int64_t number);
  // The shortest text that gives the number back, as a real. @pre finite
  void appendReal(double number);
  // In quotes, with the escapes that JSON needs and no others.
  void appendString(std::string_view text);

  // The text itself. Nothing else may be called then.
  [[nodiscard]] Data take() &&;

 private:
  struct Free {
    void operator()(char* memory) const noexcept { std::free(memory); }
  };

  // Room for so many more characters, which `size_` counts once they are there.
  char* reserve(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return start_.get() + size_;
  }
  void grow(std::size_t count);
  void appendEscaped(std::string_view text);
  void appendEscape(char character);

  std::unique_ptr<char[], Free> start_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

void JSONBuffer::grow(std::size_t count) {
  const std::size_t capacity = std::max({kSmallestBuffer, capacity_ * 2, size_ + count});
  auto* grown = static_cast<char*>(std::realloc(start_.get(), capacity));
  if (grown == nullptr) throw std::bad_alloc();
  static_cast<void>(start_.release());
  start_.reset(grown);
  core::preferLargePages(grown + size_, capacity - size_);
  capacity_ = capacity;
}

void JSONBuffer::append(std::string_view text) {
  std::ranges::copy(text, reserve(text.size()));
  size_ += text.size();
}

void JSONBuffer::appendInteger(std::int64_t number) {
  char* const out = reserve(kLongestNumber);
  size_ += static_cast<std::size_t>(std::to_chars(out, out + kLongestNumber, number).ptr - out);
}

void JSONBuffer::appendReal(double number) {
  char* const out = reserve(kLongestNumber);
  const char* const end = std::to_chars(out, out + kLongestNumber, number).ptr;
  const std::string_view digits(out, end);
  size_ += digits.size();
  if (digits.find_first_of(".e") == std::string_view::npos) append(".0");
}

void JSONBuffer::appendString(std::string_view text) {
  char* const out = reserve(text.size() + 2);
  if (!copyPlain(out + 1, text)) return appendEscaped(text);
  out[0] = '"';
  out[text.size() + 1] = '"';
  size_ += text.size() + 2;
}

void JSONBuffer::appendEscaped(std::string_view text) {
  append('"');
  while (!text.empty()) {
    const auto plain = std::ranges::find_if(text, [](char c) { return needsEscape(c); });
    append(std::string_view(text.begin(), plain));
    text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
    if (text.empty()) break;
    appendEscape(text.front());
    text.remove_prefix(1);
  }
  append('"');
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

Data JSONBuffer::take() && {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(start_.get());
  return {std::shared_ptr<const void>(std::move(start_)), {bytes, size_}};
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

std::optional<Data> unwritable(std::string_view problem, std::optional<Error>* error) {
  storeError(error, Error(NSCocoaErrorDomain, NSPropertyListWriteInvalidError,
                          {{NSDebugDescriptionErrorKey, problem}}));
  return std::nullopt;
}

std::optional<Data> writeDocument(const Value& value, std::optional<Error>* error) {
  if (!isContainer(value))
    return unwritable("only an array or a dictionary can be a document", error);
  JSONDocumentWriter writer;
  if (!writer.write(value)) return unwritable(writer.problem(), error);
  // Strings stand between quotes: all of them are UTF-8 if the whole text is.
  if (!core::isUTF8(writer.buffer().text())) return unwritable("a string is not UTF-8", error);
  storeError(error, std::nullopt);
  return std::move(writer.buffer()).take();
}

}  // namespace

bool isValidJSONObject(const Value& value) {
  return isContainer(value) && isValid(value, 0);
}

std::optional<Data> JSONFromValue(const Value& value, std::optional<Error>* error) {
  try {
    return writeDocument(value, error);
  } catch (const std::bad_alloc&) {
    return unwritable("out of memory", error);
  }
}

}  // namespace kvl
