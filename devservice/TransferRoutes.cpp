#include "devservice/Json.h"
#include "devservice/Parameters.h"
#include "devservice/Routes.h"

#include <httplib.h>

#include <algorithm>

namespace devservice {
namespace {

constexpr std::int64_t kLongestWait = 600'000;
constexpr std::int64_t kMostBytes = std::int64_t{1} << 30;
constexpr std::size_t kBlockSize = 64 * 1024;
constexpr std::size_t kResetPromises = 1000;

void slow(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto time = number(request.params, "ms", 0, kLongestWait);
  if (!time) return refuse(response, "ms must be a number of milliseconds");
  (void)state.waitFor(std::chrono::milliseconds(*time));
  response.set_content(JsonObject().add("waited", *time).text(), kJsonType);
}

bool writeBytes(std::size_t, std::size_t left, httplib::DataSink& sink) {
  static const std::string block(kBlockSize, 'x');
  return sink.write(block.data(), std::min(left, block.size()));
}

void bytes(const httplib::Request& request, httplib::Response& response) {
  const auto count = number(request.params, "count", 0, kMostBytes);
  if (!count) return refuse(response, "count must be a number of bytes");
  constexpr const char* type = "application/octet-stream";
  // A content provider of length 0 is none.
  if (*count == 0) return response.set_content("", type);
  response.set_content_provider(static_cast<std::size_t>(*count), type, writeBytes);
}

void code(const httplib::Request& request, httplib::Response& response) {
  const auto status = number(request.params, "status", 200, 599);
  if (!status) return refuse(response, "status must be one of 200 to 599");
  response.status = static_cast<int>(*status);
  response.set_content(JsonObject().add("status", *status).text(), kJsonType);
}

void redirect(const httplib::Request& request, httplib::Response& response) {
  const std::string to = request.get_param_value("to");
  const bool isSafe = std::none_of(to.begin(), to.end(), [](char c) { return c >= 0 && c < ' '; });
  if (to.empty() || !isSafe) return refuse(response, "to must be a URL");
  response.set_redirect(to);
}

// Promises more than it sends, and closes the connection.
void reset(const httplib::Request&, httplib::Response& response) {
  response.set_content_provider(kResetPromises, "text/plain",
                                [](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  constexpr std::string_view start = "not all of it";
                                  return offset == 0 && sink.write(start.data(), start.size());
                                });
}

}  // namespace

void addTransferRoutes(httplib::Server& server, ServiceState& state) {
  server.Get("/slow",
             [&state](const auto& request, auto& response) { slow(state, request, response); });
  server.Get("/bytes", bytes);
  server.Get("/code", code);
  server.Get("/redirect", redirect);
  server.Get("/reset", reset);
}

}  // namespace devservice
