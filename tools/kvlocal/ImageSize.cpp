#include "tools/kvlocal/ImageSize.h"

#include "tools/kvlocal/JSON.h"

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace kvlocal {
namespace {

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
