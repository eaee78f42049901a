#include "devservice/Parameters.h"
#include "devservice/Routes.h"

#include <httplib.h>

#include <algorithm>
#include <array>

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

}  // namespace

void addImageRoutes(httplib::Server& server) {
  server.Get("/image", image);
}

}  // namespace devservice
