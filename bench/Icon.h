// Icons as menus show them, SVG of 1 KiB.
#pragma once

#include <local/platform/Data.h>

#include <cstdint>
#include <string>

namespace kvlbench {

inline constexpr std::uint32_t kIconSide = 32;

// Of eleven paths in a group. Each number makes another one.
[[nodiscard]] inline kvl::Data icon(unsigned number) {
  const auto colour = std::to_string(100'000 + number % 800'000);
  std::string text =
      R"(<svg xmlns="http://www.w3.org/2000/svg" width="32" height="32" viewBox="0 0 32 32"><g>)";
  for (int path = 0; path < 11; ++path) {
    const auto at = std::to_string(2 + path * 2);
    text.append(R"(<path fill="#)").append(colour).append(R"(" stroke="#4e9a06" d="M)").append(at);
    text.append(" 3L28 ").append(at).append("C20 8 12 ").append(at).append("4 28Z\"/>");
  }
  return kvl::Data::fromText(text + "</g></svg>");
}

// As icon themes have them: few paths, coloured by a style sheet. A third of the work.
[[nodiscard]] inline kvl::Data themeIcon(unsigned number) {
  const auto colour = std::to_string(100'000 + number % 800'000);
  return kvl::Data::fromText(
      R"(<svg height="22" width="22" xmlns="http://www.w3.org/2000/svg"><defs id="defs4157">)"
      R"(<style id="current-color-scheme" type="text/css">.ColorScheme-Text{color:#)" +
      colour +
      R"(;}</style></defs><path class="ColorScheme-Text" d="M3,19 19,3v16z" style="opacity:0.35;)"
      R"(fill:currentColor;fill-opacity:1;fill-rule:evenodd;stroke:none;stroke-width:1px;)"
      R"(stroke-linecap:butt;stroke-linejoin:miter;stroke-opacity:1" id="path4330"/>)"
      R"(<path class="ColorScheme-Text" style="fill:currentColor;fill-opacity:1;fill-rule:evenodd;)"
      R"(stroke:none;stroke-width:1px;stroke-linecap:butt;stroke-linejoin:miter;stroke-opacity:1")"
      R"( d="M13,9 3,19h10z" id="path4317"/><path class="ColorScheme-Text" style="fill:currentColor;)"
      R"(fill-opacity:1;stroke:none" d="M3,3V8H4V6H6V8H7V3H6V5H4V3Z M9,3 8,5h2z" id="path5515"/>)"
      "</svg>");
}

}  // namespace kvlbench
