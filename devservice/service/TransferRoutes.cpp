// Answers on demand: late, in pieces, large, redirected, broken off or with any status.

#include "devservice/Log.h"
#include "devservice/service/EventScript.h"
#include "devservice/service/Json.h"
#include "devservice/service/LargeDocument.h"
#include "devservice/service/Parameters.h"
#include "devservice/service/Routes.h"
#include "devservice/service/ServiceState.h"

#include <httplib.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace devservice {
namespace {

constexpr std::int64_t kLongestWait = 600'000;
constexpr std::int64_t kMostHeld = 10'000;
constexpr std::int64_t kMostPieces = 10;  // no body is shorter
constexpr std::int64_t kMostBytes = std::int64_t{1} << 30;
constexpr std::size_t kBlockSize = 64 * 1024;
constexpr std::int64_t kUsualReset = 13;
constexpr std::int64_t kResetPromises = 1000;
constexpr std::int64_t kMostMegabytes = 1000;
constexpr std::size_t kRecordsPerMegabyte = (std::size_t{1} << 20) / LargeDocument::kRecordSize;

// The number that a parameter holds, `usual` when it is not there, or absent for what is none.
std::optional<std::int64_t> numberOr(const httplib::Request& request, const char* name,
                                     std::int64_t least, std::int64_t most, std::int64_t usual) {
  if (!request.has_param(name)) return usual;
  return number(request.params, name, least, most);
}

// Sends the pieces of a body, one as soon as it is asked for and each further one after a while.
class SlowBody {
 public:
  SlowBody(ServiceState& state, std::string text, std::chrono::milliseconds gap, std::int64_t count)
      : state_(state), text_(std::move(text)), gap_(gap), count_(count) {}

  bool send(httplib::DataSink& sink) {
    if (next_ > 0 && !pause()) return false;
    const std::string_view part = piece(text_, next_++, count_);
    return sink.write(part.data(), part.size());
  }

 private:
  bool pause() {
    log("slow: " + std::to_string(next_) + " of " + std::to_string(count_) + " pieces are sent");
    return state_.waitFor(gap_);
  }

  ServiceState& state_;
  const std::string text_;
  const std::chrono::milliseconds gap_;
  const std::int64_t count_;
  std::int64_t next_ = 0;
};

void sendInPieces(ServiceState& state, std::chrono::milliseconds gap, std::int64_t count,
                  httplib::Response& response) {
  const std::string text = JsonObject().add("waited", gap.count()).text();
  const auto body = std::make_shared<SlowBody>(state, text, gap, count);
  response.set_content_provider(
      text.size(), kJsonType,
      [body](std::size_t, std::size_t, httplib::DataSink& sink) { return body->send(sink); });
}

void slow(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto milliseconds = number(request.params, "ms", 0, kLongestWait);
  if (!milliseconds) return refuse(response, "ms must be a number of milliseconds");
  const auto pieces = numberOr(request, "pieces", 1, kMostPieces, 1);
  if (!pieces) return refuse(response, "pieces must be a number from 1 to 10");
  const std::chrono::milliseconds time(*milliseconds);
  if (*pieces > 1) return sendInPieces(state, time, *pieces, response);
  log("slow: the answer waits");
  (void)state.waitFor(time);
  response.set_content(JsonObject().add("waited", *milliseconds).text(), kJsonType);
}

// Nobody is answered before so many are there.
void hold(ServiceState& state, const httplib::Request& request, httplib::Response& response) {
  const auto count = number(request.params, "count", 1, kMostHeld);
  if (!count) return refuse(response, "count must be a number from 1 to 10000");
  const auto own = numberOr(request, "number", 0, kMostBytes, 0);
  if (!own) return refuse(response, "number must be a number");
  if (!state.gather(*count)) return;
  response.set_content(JsonObject().add("number", *own).text(), kJsonType);
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

void large(const httplib::Request& request, httplib::Response& response) {
  const auto megabytes = number(request.params, "megabytes", 0, kMostMegabytes);
  if (!megabytes) return refuse(response, "megabytes must be a number up to 1000");
  const LargeDocument document(static_cast<std::size_t>(*megabytes) * kRecordsPerMegabyte);
  response.set_content_provider(
      document.size(), kJsonType,
      [document](std::size_t offset, std::size_t, httplib::DataSink& sink) {
        std::string text;
        document.append(text, offset, kBlockSize);
        return sink.write(text.data(), text.size());
      });
}

void code(const httplib::Request& request, httplib::Response& response) {
  const auto status = number(request.params, "status", 200, 599);
  if (!status) return refuse(response, "status must be one of 200 to 599");
  response.status = static_cast<int>(*status);
  const std::string usual = JsonObject().add("status", *status).text();
  response.set_content(parameter(request.params, "body").value_or(usual), kJsonType);
}

bool isRedirection(std::int64_t status) {
  return (status >= 301 && status <= 303) || status == 307 || status == 308;
}

void redirect(const httplib::Request& request, httplib::Response& response) {
  const std::string to = request.get_param_value("to");
  const bool isSafe = std::none_of(to.begin(), to.end(), [](char c) { return c >= 0 && c < ' '; });
  if (to.empty() || !isSafe) return refuse(response, "to must be a URL");
  const auto status = numberOr(request, "status", 301, 308, 302);
  if (!status || !isRedirection(*status)) return refuse(response, "status must be a redirection");
  response.set_redirect(to, static_cast<int>(*status));
}

// Promises more than it sends, and closes the connection.
void reset(const httplib::Request& request, httplib::Response& response) {
  const auto after = numberOr(request, "after", 0, kMostBytes, kUsualReset);
  if (!after) return refuse(response, "after must be a number of bytes");
  const auto size = static_cast<std::size_t>(*after);
  response.set_content_provider(static_cast<std::size_t>(*after + kResetPromises), kJsonType,
                                [size](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  return offset < size && writeBytes(offset, size - offset, sink);
                                });
}

// A submission is answered like a fetch; its body does not matter.
void addForAnyBody(httplib::Server& server, const char* path,
                   const httplib::Server::Handler& answer) {
  server.Get(path, answer);
  server.Post(path, [answer](const auto& request, auto& response, const auto& reader) {
    if (readBody(request, reader)) answer(request, response);
  });
}

}  // namespace

void addTransferRoutes(httplib::Server& server, ServiceState& state) {
  addForAnyBody(server, "/slow",
                [&state](const auto& request, auto& response) { slow(state, request, response); });
  server.Get("/hold",
             [&state](const auto& request, auto& response) { hold(state, request, response); });
  server.Get("/bytes", bytes);
  server.Get("/large", large);
  addForAnyBody(server, "/code", code);
  addForAnyBody(server, "/redirect", redirect);
  server.Get("/reset", reset);
}

}  // namespace devservice
