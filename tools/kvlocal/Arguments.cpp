#include "tools/kvlocal/Arguments.h"

#include "tools/kvlocal/Input.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <system_error>

namespace kvlocal {
namespace {

constexpr std::string_view kType = ";type=";
constexpr std::string_view kFilename = ";filename=";

bool holdsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
}

// An empty text when it can stand in a line of its own.
std::string faultOf(std::string_view text, std::string_view what) {
  if (!isUTF8(text)) return std::string(what) + " is not UTF-8";
  if (holdsControl(text)) return std::string(what) + " holds a control character";
  return {};
}

std::string nameFault(std::string_view name) {
  if (name.find('"') != std::string_view::npos) return "a name cannot hold a double quote";
  return faultOf(name, "a name");
}

std::string lastPart(std::string_view path) {
  if (path == kStandardInput) return {};
  return std::string(path.substr(path.rfind('/') + 1));
}

// The value of the last option in `text`, which is cut off there; absent when there is none.
struct Option {
  std::string_view name;
  std::string value;
};
std::optional<Option> takeLastOption(std::string_view& text) {
  std::optional<Option> found;
  std::size_t position = 0;
  for (const std::string_view name : {kType, kFilename}) {
    const std::size_t at = text.rfind(name);
    if (at == std::string_view::npos || (found && at < position)) continue;
    position = at;
    found = Option{name, std::string(text.substr(at + name.size()))};
  }
  if (found) text = text.substr(0, position);
  return found;
}

// Where the name ends; none without an equals sign.
std::size_t endOfName(std::string_view text) {
  return text.find('=');
}

constexpr double kLargest = 1e5;

std::optional<double> measure(std::string_view text) {
  double value = 0;
  const auto [rest, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isRight =
      fault == std::errc{} && rest == text.data() + text.size() && value > 0 && value <= kLargest;
  return isRight ? std::optional(value) : std::nullopt;
}

std::optional<kvl::Size> parseSize(std::string_view text) {
  const std::size_t middle = text.find('x');
  if (middle == std::string_view::npos) return std::nullopt;
  const auto width = measure(text.substr(0, middle));
  const auto height = measure(text.substr(middle + 1));
  if (!width || !height) return std::nullopt;
  return kvl::Size{*width, *height};
}

}  // namespace

CLI::Validator secondsCheck() {
  return CLI::Range(0.0, kLongestSeconds).description("");
}

CLI::Validator countCheck() {
  return {[](const std::string& text) -> std::string {
            std::int64_t count = 0;
            const char* const end = text.data() + text.size();
            const auto [rest, fault] = std::from_chars(text.data(), end, count);
            if (fault == std::errc{} && rest == end && count >= 0) return {};
            return jsonText(text) + " is not a whole number from 0 to " +
                   std::to_string(std::numeric_limits<std::int64_t>::max());
          },
          ""};
}

std::variant<TextInput, std::string> parseTextInput(std::string_view text) {
  const std::size_t end = endOfName(text);
  if (end == std::string_view::npos) return jsonText(text) + " is not NAME=VALUE";
  TextInput input{std::string(text.substr(0, end)), std::string(text.substr(end + 1))};
  if (std::string fault = nameFault(input.name); !fault.empty()) return fault;
  if (!isUTF8(input.value)) return "a value is not UTF-8; send it as a file";
  return input;
}

std::variant<FileInput, std::string> parseFileInput(std::string_view text) {
  const std::size_t end = endOfName(text);
  if (end == std::string_view::npos || !text.substr(end + 1).starts_with('@'))
    return jsonText(text) + " is not NAME=@PATH";
  FileInput input{std::string(text.substr(0, end)), {}, {}, {}};
  std::optional<std::string> filename;
  text.remove_prefix(end + 2);
  while (auto option = takeLastOption(text))
    (option->name == kType ? input.contentType : filename) = std::move(option->value);
  input.path = text;
  input.filename = filename.value_or(lastPart(text));
  if (input.path.empty()) return "the path of a file is empty";
  for (const std::string& fault : {nameFault(input.name), faultOf(input.filename, "a file name"),
                                   faultOf(input.contentType.value_or(""), "a content type")})
    if (!fault.empty()) return fault;
  return input;
}

std::string sizeFault(const std::string& text) {
  if (parseSize(text)) return {};
  return jsonText(text) + " is not WIDTHxHEIGHT with numbers above 0 and up to 100000";
}

kvl::Size sizeOf(const std::string& text) {
  return parseSize(text).value_or(kvl::Size{});
}

std::string sizeText(kvl::Size size) {
  return jsonText(size.width) + " x " + jsonText(size.height);
}

}  // namespace kvlocal
