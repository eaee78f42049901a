// Any argument of the command line program: what is accepted holds nothing that would break a form,
// and stands for what was written.
#include "fuzz/Target.h"
#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Text.h"

#include <local/platform/Text.h>

#include <algorithm>
#include <string>
#include <variant>

namespace {

using kvl::fuzz::require;

bool mayStandInALine(std::string_view text) {
  return kvl::isUTF8(text) &&
         std::ranges::none_of(text, [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; });
}

void checkFault(const std::string& fault) {
  require(!fault.empty() && kvl::isUTF8(fault), "a fault is a text");
  require(std::ranges::none_of(fault, [](unsigned char byte) { return byte < 0x20; }),
          "a fault is one line");
}

void checkTextInput(const std::string& text) {
  const auto parsed = kvlocal::parseTextInput(text);
  if (const auto* fault = std::get_if<std::string>(&parsed)) return checkFault(*fault);
  const auto& input = std::get<kvlocal::TextInput>(parsed);
  require(input.name + "=" + input.value == text, "name and value are what was written");
  require(mayStandInALine(input.name) && input.name.find('"') == std::string::npos,
          "a name stays within its quotes");
  require(input.name.find('=') == std::string::npos, "a name ends at an equals sign");
  require(kvl::isUTF8(input.value), "a value is UTF-8");
}

void checkFileInput(const std::string& text) {
  const auto parsed = kvlocal::parseFileInput(text);
  if (const auto* fault = std::get_if<std::string>(&parsed)) return checkFault(*fault);
  const auto& input = std::get<kvlocal::FileInput>(parsed);
  require(text.starts_with(input.name + "=@" + input.path), "name and path come first");
  require(!input.path.empty(), "a file has a path");
  require(mayStandInALine(input.name) && input.name.find('"') == std::string::npos,
          "a name stays within its quotes");
  require(mayStandInALine(input.filename), "a file name stays in its line");
  require(mayStandInALine(input.contentType.value_or("")), "a type stays in its line");
  auto rest = text.size() - input.name.size() - 2 - input.path.size();
  if (input.contentType) rest -= std::string_view(";type=").size() + input.contentType->size();
  const auto named = std::string_view(";filename=").size() + input.filename.size();
  require(rest == 0 || rest == named, "nothing else was written");
}

void checkNumbers(std::string text) {
  if (kvlocal::secondsCheck()(text).empty()) {
    const double seconds = std::stod(text);
    require(seconds >= 0 && seconds <= kvlocal::kLongestSeconds, "seconds are within their limits");
  }
  if (kvlocal::countCheck()(text).empty()) require(std::stoll(text) >= 0, "a count is a number");
  if (!kvlocal::sizeFault(text).empty()) return;
  const auto size = kvlocal::sizeOf(text);
  require(size.width > 0 && size.width <= 1e5, "a width is within its limits");
  require(size.height > 0 && size.height <= 1e5, "a height is within its limits");
}

void checkArguments(kvl::fuzz::Input input) {
  std::string text(kvl::fuzz::textOf(input));
  std::erase(text, '\0');  // no argument holds one
  checkTextInput(text);
  checkFileInput(text);
  checkNumbers(text);
  if (kvlocal::identifierCheck()(text).empty())
    require(!text.empty() && kvl::isUTF8(text), "an identifier is a text");
  require(kvlocal::textCheck()(text).empty() == kvl::isUTF8(text), "a text is UTF-8");
}

const kvl::fuzz::Target arguments("arguments", checkArguments);

}  // namespace
