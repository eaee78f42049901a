#include "platform/interface/images/SVGText.h"

#include "platform/core/ASCII.h"

#include <algorithm>
#include <array>
#include <string>

namespace kvl::images {
namespace {

constexpr std::array<std::string_view, 6> kLayerProperties{
    "opacity", "filter", "mask", "clip-path", "mix-blend-mode", "isolation"};
constexpr std::array<std::string_view, 6> kHarmlessValues{"1",    "1.0",    "100%",
                                                          "none", "normal", "auto"};

bool isHarmless(std::string_view value) {
  return std::ranges::count(kHarmlessValues, ascii::trimmed(value)) > 0;
}

bool endsName(std::string_view text, std::size_t position) {
  if (position == 0) return true;
  const char before = text[position - 1];
  return before != '-' && !ascii::isLetter(before);
}

// The value that follows a property's name, or more than that.
std::string_view valueAfter(std::string_view style, std::size_t position) {
  auto rest = ascii::trimmed(style.substr(position));
  if (rest.starts_with(':')) rest.remove_prefix(1);
  return rest.substr(0, rest.find_first_of(";}"));
}

std::size_t layersOfProperty(std::string_view style, std::string_view property) {
  std::size_t layers = 0;
  for (auto found = style.find(property); found != std::string_view::npos;
       found = style.find(property, found + 1)) {
    const bool counts =
        endsName(style, found) && !isHarmless(valueAfter(style, found + property.size()));
    layers += counts ? 1 : 0;
  }
  return layers;
}

}  // namespace

bool mayEmbedFile(std::string_view text) {
  if (text.find('\\') != std::string_view::npos) return true;
  std::string dense;
  for (const char character : text) {
    if (static_cast<unsigned char>(character) > ' ') dense += ascii::lowered(character);
  }
  return dense.find("data:") != std::string::npos;
}

bool makesLayer(std::string_view name, std::string_view value) {
  return std::ranges::count(kLayerProperties, name) > 0 && !isHarmless(value);
}

std::size_t layersInStyle(std::string_view style) {
  std::string low(style);
  std::ranges::transform(low, low.begin(), ascii::lowered);
  std::size_t layers = 0;
  for (const auto property : kLayerProperties) layers += layersOfProperty(low, property);
  return layers;
}

bool declaresUTF8(std::string_view declaration) {
  auto at = declaration.find("encoding");
  if (at == std::string_view::npos) return true;
  at = declaration.find_first_of("\"'", at);
  if (at == std::string_view::npos) return false;
  std::string name(declaration.substr(at + 1, declaration.find(declaration[at], at + 1) - at - 1));
  std::ranges::transform(name, name.begin(), ascii::lowered);
  return name == "utf-8" || name == "utf8" || name == "us-ascii";
}

}  // namespace kvl::images
