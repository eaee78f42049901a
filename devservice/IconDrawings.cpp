#include "devservice/IconDrawings.h"

#include <algorithm>
#include <array>
#include <utility>

namespace devservice {
namespace {

using Drawing = std::pair<std::string_view, std::string_view>;

// Strokes on a grid of 16 by 16.
constexpr std::array<Drawing, 11> kDrawings{{
    {"report", "M4 1.8h5.2L12.5 5v9.2H4zM9 2v3.2h3.3M6.2 8h4M6.2 11h4"},
    {"folder", "M1.8 3.2h4.4l1.6 1.9h6.4v7.9H1.8z"},
    {"share", "M8 10V2.2M4.8 5.2L8 2l3.2 3.2M2.8 9v4.8h10.4V9"},
    {"print", "M4.3 6V2.2h7.4V6M4.3 11.5H2.2V6h11.6v5.5h-2.1M4.3 9.5h7.4v4.3H4.3z"},
    {"download", "M8 2v7.8M4.8 6.8L8 10l3.2-3.2M2.8 13.6h10.4"},
    {"clock", "M8 1.8a6.2 6.2 0 1 0 .01 0zM8 4.5V8l2.6 1.6"},
    {"preview", "M1.5 8Q8-.5 14.5 8 8 16.5 1.5 8zM8 6a2 2 0 1 0 .01 0z"},
    {"message", "M2 2.8h12v8H7.6L4.3 13.6V10.8H2z"},
    {"help",
     "M8 1.8a6.2 6.2 0 1 0 .01 0zM6.1 6.3a1.9 1.9 0 1 1 2.7 1.7"
     "q-.8.4-.8 1.3M8 11.5v.2"},
    {"trash", "M2.8 4h10.4M6 4V2.2h4V4M4.2 4l.6 9.8h6.4l.6-9.8M6.9 6.8v4.3M9.1 6.8v4.3"},
    {"lock", "M3.3 7h9.4v6.8H3.3zM5.3 7V4.7a2.7 2.7 0 0 1 5.4 0V7"},
}};

constexpr std::string_view kHead =
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"16\" height=\"16\" viewBox=\"0 0 16 16\">"
    "<path fill=\"none\" stroke=\"#000\" stroke-width=\"1.4\" stroke-linecap=\"round\" "
    "stroke-linejoin=\"round\" d=\"";

}  // namespace

std::optional<std::string> iconDrawing(std::string_view name) {
  const auto* const found = std::ranges::find(kDrawings, name, &Drawing::first);
  if (found == kDrawings.end()) return std::nullopt;
  return std::string(kHead).append(found->second).append("\"/></svg>\n");
}

}  // namespace devservice
