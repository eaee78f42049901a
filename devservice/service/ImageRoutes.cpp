// Images: /image, made to order, and /icon/NAME, the icons of the menus that the service serves.

#include "devservice/service/Parameters.h"
#include "devservice/service/Routes.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace devservice {
namespace {

constexpr std::int64_t kLargestSide = 4096;
constexpr std::int64_t kUsualSide = 16;

// A dark disc on a transparent ground, 16 by 16.
constexpr std::array<unsigned char, 104> kDisc{
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44,
    0x52, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x10, 0x08, 0x04, 0x00, 0x00, 0x00, 0xb5,
    0xfa, 0x37, 0xea, 0x00, 0x00, 0x00, 0x2f, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0x60,
    0x20, 0x1e, 0x18, 0xff, 0x47, 0x40, 0x02, 0xd2, 0x58, 0x94, 0xa0, 0x4b, 0xa3, 0x29, 0xc1,
    0x26, 0x8d, 0xa4, 0x04, 0x97, 0x34, 0x5c, 0xc9, 0x90, 0x50, 0x40, 0xd0, 0x9b, 0x44, 0x04,
    0x14, 0x11, 0x41, 0x4d, 0x44, 0x64, 0xe1, 0x02, 0x00, 0x1a, 0xe8, 0xba, 0x79, 0xa4, 0x0c,
    0x93, 0x5c, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

std::string discText() {
  return {reinterpret_cast<const char*>(kDisc.data()), kDisc.size()};
}

std::string squareText(std::int64_t side) {
  const std::string length = std::to_string(side);
  const std::string measures = "width=\"" + length + "\" height=\"" + length + "\"";
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" " + measures + "><rect " + measures +
         " fill=\"#345\"/></svg>\n";
}

// What can stand in a header field as it is.
bool isToken(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.';
  });
}

void image(const httplib::Request& request, httplib::Response& response) {
  const std::string format = parameter(request.params, "format").value_or("png");
  if (format != "png" && format != "svg") return refuse(response, "format must be png or svg");
  const bool hasSide = request.has_param("side");
  const auto side = hasSide ? number(request.params, "side", 1, kLargestSide) : kUsualSide;
  if (!side || (hasSide && format == "png"))
    return refuse(response, "side must be a number, and is for svg only");
  const std::string role = parameter(request.params, "role").value_or("");
  if (!isToken(role)) return refuse(response, "role must be a word");
  const std::string type = format == "png" ? "image/png" : "image/svg+xml";
  response.set_content(format == "png" ? discText() : squareText(*side),
                       role.empty() ? type : type + "; role=" + role);
}

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

constexpr std::string_view kIconHead =
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"16\" height=\"16\" viewBox=\"0 0 16 16\">"
    "<path fill=\"none\" stroke=\"#000\" stroke-width=\"1.4\" stroke-linecap=\"round\" "
    "stroke-linejoin=\"round\" d=\"";

// An SVG of 16 by 16 of which only the shape counts; absent when no icon has that name.
std::optional<std::string> iconDrawing(std::string_view name) {
  const auto* const found = std::ranges::find(kDrawings, name, &Drawing::first);
  if (found == kDrawings.end()) return std::nullopt;
  return std::string(kIconHead).append(found->second).append("\"/></svg>\n");
}

void icon(const httplib::Request& request, httplib::Response& response) {
  if (const auto drawing = iconDrawing(request.matches[1].str()))
    return response.set_content(*drawing, "image/svg+xml; role=template");
  response.status = 404;
}

}  // namespace

void addImageRoutes(httplib::Server& server) {
  server.Get("/image", image);
  server.Get("/icon/([a-z]+)", icon);
}

}  // namespace devservice
