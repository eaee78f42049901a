#include "devservice/Parameters.h"
#include "devservice/Routes.h"
#include "devservice/StreamConnection.h"

#include <httplib.h>
#include <openssl/ssl.h>

namespace devservice {
namespace {

constexpr std::int64_t kLongestInterval = 600'000;
// How soon a follower hears of something.
constexpr std::chrono::milliseconds kLook{40};

// Returns when the client left or the service ends.
void follow(ServiceState& state, SSL& tls, std::int64_t position,
            std::optional<std::chrono::milliseconds> interval) {
  StreamConnection connection(state, tls);
  bool isThere = true;
  while (isThere) {
    if (interval) state.feed().tickEvery(*interval);
    const std::string text = state.feed().take(position);
    isThere = (text.empty() || connection.writeChunk(text)) && connection.pass(kLook);
  }
}

void feed(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto interval = number(request.params, "interval", 1, kLongestInterval);
  if (request.has_param("interval") && !interval)
    return refuse(response, "interval must be a number from 1 to 600000");
  const auto ticks = interval ? std::optional(std::chrono::milliseconds(*interval)) : std::nullopt;
  const auto position = state.feed().positionAfter(request.get_header_value("Last-Event-ID"));
  // The library lets handlers only look at the connection.
  auto& tls = const_cast<SSL&>(*request.ssl);
  response.set_header("Cache-Control", "no-store");
  response.set_chunked_content_provider(
      "text/event-stream", [&state, &tls, position, ticks](std::size_t, httplib::DataSink&) {
        follow(state, tls, position, ticks);
        return false;
      });
}

}  // namespace

void addFeedRoutes(httplib::Server& server, ServiceState& state) {
  server.Get("/feed",
             [&state](const auto& request, auto& response) { feed(state, request, response); });
}

}  // namespace devservice
