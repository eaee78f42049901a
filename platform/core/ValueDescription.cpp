#include "platform/core/ASCII.h"
#include "platform/core/ValueAccess.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <utility>

namespace kvl {
namespace {

using detail::ValueAccess;

// Containers within one another beyond which a description only says that there is more.
constexpr int kDescribedDepth = 128;

void appendReal(std::string& text, double real) {
  std::array<char, 32> buffer{};
  // As people write numbers: with an exponent only where there would be many zeros.
  const double size = std::fabs(real);
  const bool isPlain = size == 0 || (size >= 1e-4 && size < 1e16);
  const auto form = isPlain ? std::chars_format::fixed : std::chars_format::general;
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real, form);
  text.append(buffer.data(), result.ptr);
}

constexpr std::string_view kMarks = "_.-/:";

bool isBareWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) {
    return ascii::isLetterOrDigit(c) || kMarks.find(c) != std::string_view::npos;
  });
}

void appendText(std::string& out, std::string_view text) {
  if (isBareWord(text)) {
    out += text;
    return;
  }
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  out += '"';
}

void appendData(std::string& out, const Data& data) {
  out += "<" + std::to_string(data.size()) + " bytes>";
}

void appendDescription(std::string& out, const Value& value, int depth);

void appendArray(std::string& out, const Value& array, int depth) {
  out += '(';
  for (const auto* separator = ""; const auto& element : ValueAccess::elements(array)) {
    out += std::exchange(separator, ", ");
    appendDescription(out, element, depth);
  }
  out += ')';
}

void appendDictionary(std::string& out, const Value& dictionary, int depth) {
  out += '{';
  for (const auto* separator = ""; const auto& [key, value] : ValueAccess::entries(dictionary)) {
    out += std::exchange(separator, "; ");
    appendText(out, key);
    out += " = ";
    appendDescription(out, value, depth);
  }
  out += '}';
}

void appendContainer(std::string& out, const Value& value, int depth) {
  if (depth > kDescribedDepth) {
    out += "...";
  } else if (value.kind() == Value::Kind::array) {
    appendArray(out, value, depth);
  } else {
    appendDictionary(out, value, depth);
  }
}

// `depth` is the number of containers around the value.
void appendDescription(std::string& out, const Value& value, int depth) {
  using enum Value::Kind;
  switch (value.kind()) {
    case null:
      out += "<null>";
      break;
    case boolean:
      out += *value.boolean() ? "true" : "false";
      break;
    case integer:
      out += std::to_string(*value.integer());
      break;
    case real:
      appendReal(out, *value.real());
      break;
    case date:
      out += value.date()->description();
      break;
    case string:
      appendText(out, ValueAccess::text(value));
      break;
    case data:
      appendData(out, ValueAccess::data(value));
      break;
    case array:
    case dictionary:
      appendContainer(out, value, depth + 1);
      break;
    case object:
      out += ValueAccess::object(value)->description();
      break;
  }
}

}  // namespace

std::string Value::description() const {
  std::string text;
  if (kind() == Kind::string) return std::string(ValueAccess::text(*this));
  appendDescription(text, *this, 0);
  return text;
}

std::string Number::description() const {
  return kind() == Value::Kind::boolean ? std::to_string(integer()) : value_.description();
}

}  // namespace kvl
