#include "tools/kvlocal/Arguments.h"

#include "tools/kvlocal/Input.h"
#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <limits>
#include <system_error>
#include <utility>

namespace kvlocal {
namespace {

constexpr std::string_view kType = ";type=";
constexpr std::string_view kFilename = ";filename=";
constexpr std::string_view kLetters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";

bool holdsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
}

// An empty text when it can stand in a line of its own.
std::string faultOf(std::string_view text, std::string_view what) {
  if (!kvl::isUTF8(text)) return tr("%@ is not UTF-8", what);
  if (holdsControl(text)) return tr("%@ holds a control character", what);
  return {};
}

std::string nameFault(std::string_view name) {
  if (name.find('"') != std::string_view::npos) return tr("a name cannot hold a double quote");
  return faultOf(name, tr("a name"));
}

// A file system allows line ends in names; in a form they would begin new lines of the part's head.
std::string filenameFault(std::string_view filename) {
  std::string fault = faultOf(filename, tr("a file name"));
  if (!fault.empty()) fault = tr("%@; send it under another one: ;filename=NAME", fault);
  return fault;
}

std::string lastPart(std::string_view path) {
  if (path == kStandardInput) return {};
  return std::string(path.substr(path.rfind('/') + 1));
}

// What may stand behind a path: a semicolon, a word and an equals sign.
std::size_t findParameter(std::string_view text, std::size_t from = 0) {
  for (std::size_t at = text.find(';', from); at < text.size(); at = text.find(';', at + 1)) {
    const std::size_t end = text.find_first_not_of(kLetters, at + 1);
    if (end > at + 1 && end < text.size() && text[end] == '=') return at;
  }
  return std::string_view::npos;
}

std::string repeatedParameter(std::string_view name) {
  return tr("a file has one %@, and two are given", name.substr(1, name.size() - 2));
}

std::string unknownParameter(std::string_view parameter) {
  return tr(
      "%@ is no parameter of a file, which has type and filename; send a file whose name looks "
      "like that from standard input",
      kvl::jsonText(parameter.substr(1, parameter.find('=') - 1)));
}

// Takes the parameters off the end of `text`, from the last one to the first, and leaves the path.
// What is wrong with them, or an empty text. A type may have parameters of its own.
std::string takeParameters(std::string_view& text, std::optional<std::string>& type,
                           std::optional<std::string>& filename) {
  for (;;) {
    const std::size_t typeAt = text.rfind(kType);
    const std::size_t nameAt = text.rfind(kFilename);
    if (typeAt == nameAt) break;  // neither is there
    const bool isType =
        nameAt == std::string_view::npos || (typeAt != std::string_view::npos && typeAt > nameAt);
    const std::string_view name = isType ? kType : kFilename;
    auto& value = isType ? type : filename;
    if (value) return repeatedParameter(name);
    const std::size_t at = isType ? typeAt : nameAt;
    value = text.substr(at + name.size());
    text = text.substr(0, at);
  }
  for (const std::string_view plain :
       {text, filename ? std::string_view(*filename) : std::string_view()}) {
    const std::size_t at = findParameter(plain);
    if (at != std::string_view::npos) return unknownParameter(plain.substr(at));
  }
  return {};
}

// Where the name ends; none without an equals sign.
std::size_t endOfName(std::string_view text) {
  return text.find('=');
}

constexpr double kLargest = 1e5;

// Also "inf" and "nan".
std::optional<double> number(std::string_view text) {
  double value = 0;
  const auto [rest, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = fault == std::errc{} && rest == text.data() + text.size();
  return isWhole ? std::optional(value) : std::nullopt;
}

std::optional<double> measure(std::string_view text) {
  const auto value = number(text);
  return value && *value > 0 && *value <= kLargest ? value : std::nullopt;
}

// With no text of its own in the help.
CLI::Validator checkOf(std::function<std::string(const std::string&)> fault) {
  return {std::move(fault), ""};
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
  return checkOf([](const std::string& text) -> std::string {
    const auto seconds = number(text);
    if (seconds && *seconds >= 0 && *seconds <= kLongestSeconds) return {};
    return tr("%@ is not a number of seconds from 0 to 1000000", kvl::jsonText(text));
  });
}

CLI::Validator identifierCheck() {
  return checkOf([](const std::string& text) -> std::string {
    if (text.empty()) return tr("an identifier cannot be empty: keys are kept under it");
    return kvl::isUTF8(text) ? std::string() : tr("an identifier is UTF-8, and this one is not");
  });
}

CLI::Validator textCheck() {
  return checkOf([](const std::string& text) {
    return kvl::isUTF8(text) ? std::string() : tr("%@ is not UTF-8", kvl::jsonText(text));
  });
}

CLI::Validator countCheck() {
  return checkOf([](const std::string& text) -> std::string {
    std::int64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data(), end, count);
    if (fault == std::errc{} && rest == end && count >= 0) return {};
    return tr("%@ is not a whole number from 0 to %@", kvl::jsonText(text),
              std::numeric_limits<std::int64_t>::max());
  });
}

std::variant<TextInput, std::string> parseTextInput(std::string_view text) {
  const std::size_t end = endOfName(text);
  if (end == std::string_view::npos) return tr("%@ is not NAME=VALUE", kvl::jsonText(text));
  TextInput input{std::string(text.substr(0, end)), std::string(text.substr(end + 1))};
  if (std::string fault = nameFault(input.name); !fault.empty()) return fault;
  if (!kvl::isUTF8(input.value)) return tr("a value is not UTF-8; send it as a file");
  return input;
}

std::variant<FileInput, std::string> parseFileInput(std::string_view text) {
  const std::size_t end = endOfName(text);
  if (end == std::string_view::npos || !text.substr(end + 1).starts_with('@'))
    return tr("%@ is not NAME=@PATH", kvl::jsonText(text));
  FileInput input{std::string(text.substr(0, end)), {}, {}, {}};
  std::optional<std::string> filename;
  text.remove_prefix(end + 2);
  if (std::string fault = takeParameters(text, input.contentType, filename); !fault.empty())
    return fault;
  input.path = text;
  input.filename = filename.value_or(lastPart(text));
  if (input.path.empty()) return tr("the path of a file is empty");
  for (const std::string& fault : {nameFault(input.name), filenameFault(input.filename),
                                   faultOf(input.contentType.value_or(""), tr("a content type"))})
    if (!fault.empty()) return fault;
  return input;
}

std::string sizeFault(const std::string& text) {
  if (parseSize(text)) return {};
  return tr("%@ is not WIDTHxHEIGHT with numbers above 0 and up to 100000", kvl::jsonText(text));
}

kvl::Size sizeOf(const std::string& text) {
  return parseSize(text).value_or(kvl::Size{});
}

std::string sizeText(kvl::Size size) {
  return kvl::jsonText(size.width) + " x " + kvl::jsonText(size.height);
}

}  // namespace kvlocal
