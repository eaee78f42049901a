#include "devservice/Routes.h"

#include <httplib.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>

namespace devservice {
namespace {

namespace fs = std::filesystem;

const char* contentType(const fs::path& file) {
  static const std::map<std::string, const char*> types{
      {".json", kJsonType},
      {"", kJsonType},
      {".txt", "text/plain; charset=utf-8"},
      {".html", "text/html; charset=utf-8"},
      {".png", "image/png"},
      {".svg", "image/svg+xml"},
      {".pdf", "application/pdf"},
      {".jpg", "image/jpeg"},
  };
  const auto found = types.find(file.extension().string());
  return found == types.end() ? "application/octet-stream" : found->second;
}

bool isBelow(const fs::path& directory, const fs::path& file) {
  const auto [end, _] = std::mismatch(directory.begin(), directory.end(), file.begin(), file.end());
  return end == directory.end();
}

// The regular file that a request's path names, links resolved; absent when it is not below the
// directory.
std::optional<fs::path> findFile(const fs::path& directory, const std::string& path) {
  if (path.find('\0') != std::string::npos) return std::nullopt;
  for (const char* suffix : {"", ".json"}) {
    std::error_code error;
    fs::path file = fs::canonical(directory / fs::path("." + path + suffix), error);
    if (!error && isBelow(directory, file) && fs::is_regular_file(file, error)) return file;
  }
  return std::nullopt;
}

}  // namespace

void addDocumentRoutes(httplib::Server& server, const fs::path& directory) {
  using Handled = httplib::Server::HandlerResponse;
  server.set_pre_routing_handler([root = fs::canonical(directory)](const httplib::Request& request,
                                                                   httplib::Response& response) {
    const bool isRead = request.method == "GET" || request.method == "HEAD";
    const auto file = isRead ? findFile(root, request.path) : std::nullopt;
    if (!file) return Handled::Unhandled;
    std::ifstream stream(*file, std::ios::binary);
    response.status = 200;
    response.set_content(std::string(std::istreambuf_iterator<char>(stream), {}),
                         contentType(*file));
    return Handled::Handled;
  });
}

}  // namespace devservice
