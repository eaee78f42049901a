#include "tests/serialisation/MadeValue.h"

#include <array>
#include <bit>
#include <cmath>

namespace kvltest {
namespace {

constexpr int kDeepestValue = 6;
constexpr std::uint8_t kLongText = 0xf0;  // from this byte on

}  // namespace

std::uint8_t ValueMaker::byte() {
  if (rest_.empty()) return 0;
  const std::uint8_t first = rest_.front();
  rest_ = rest_.subspan(1);
  return first;
}

std::uint64_t ValueMaker::number(int bytes) {
  std::uint64_t result = 0;
  for (int i = 0; i < bytes; ++i) result = result << 8 | byte();
  return result;
}

// Of every size that property lists tell apart, and of both signs.
std::int64_t ValueMaker::integer() {
  const std::uint8_t form = byte();
  const auto magnitude = static_cast<std::int64_t>(number(form % 9));
  return (form & 0x80) != 0 ? ~magnitude : magnitude;
}

double ValueMaker::real() {
  const auto any = std::bit_cast<double>(number(8));
  if (!portable()) return any;
  return std::isfinite(any) && any != 0 ? any : 0.5;
}

kvl::Date ValueMaker::date() {
  if (!portable()) return kvl::Date(std::bit_cast<double>(number(8)));
  return kvl::Date(static_cast<std::int32_t>(number(4)));
}

void ValueMaker::appendCharacter(std::string& text) {
  static constexpr std::array<std::string_view, 10> kCharacters = {
      "\u00e9",     "\u0416",     "\u65e5", "\uffff", "\U00010000",
      "\U0001f600", "\U0010ffff", "\x7f",   "\u0080", "\u07ff"};
  const std::uint8_t choice = byte();
  if (!portable() && choice > 0xe0) {
    text += static_cast<char>(byte());
  } else if (choice > 0xc0) {
    text += kCharacters[choice % kCharacters.size()];
  } else {
    text += static_cast<char>(portable() ? 1 + choice % 0x7f : choice & 0x7f);
  }
}

std::string ValueMaker::text() {
  std::string result;
  std::size_t length = byte();
  length = length < kLongText ? length % 20 : number(1) + number(1);
  for (std::size_t i = 0; i < length && !rest_.empty(); ++i) appendCharacter(result);
  return result;
}

kvl::Data ValueMaker::data() {
  auto bytes = text();
  if (portable()) bytes += "/" + std::to_string(datas_++);
  return kvl::Data::adoptingText(std::move(bytes));
}

kvl::Array ValueMaker::array(int depth) {
  kvl::Array result;
  for (int i = byte() % 20; i > 0 && !rest_.empty(); --i) result.append(value(depth + 1));
  return result;
}

kvl::Dictionary ValueMaker::dictionary(int depth) {
  kvl::Dictionary result;
  for (int i = byte() % 20; i > 0 && !rest_.empty(); --i) {
    const auto key = text();
    result.set(key, value(depth + 1));
  }
  return result;
}

kvl::Value ValueMaker::value(int depth) {
  const int kind = byte() % (depth < kDeepestValue ? 12 : 7);
  switch (kind) {
    case 0:
      return portable() ? kvl::Value(true) : kvl::Value();
    case 1:
      return byte() % 2 == 0;
    case 2:
      return integer();
    case 3:
      return real();
    case 4:
      return date();
    case 5:
      return data();
    case 6:
    case 7:
      return text();
    case 8:
    case 9:
      return array(depth);
    default:
      return dictionary(depth);
  }
}

}  // namespace kvltest
