#include "platform/serialisation/JSONBuffer.h"

#include "platform/core/LargeMemory.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>

namespace kvl::serialisation {
namespace {

constexpr std::size_t kSmallestCapacity = 256;
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

}  // namespace

void JSONBuffer::grow(std::size_t count) {
  const std::size_t capacity = std::max({kSmallestCapacity, capacity_ * 2, size_ + count});
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

}  // namespace kvl::serialisation
