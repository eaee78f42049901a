#include "devservice/Routes.h"

#include "devservice/Json.h"

#include <httplib.h>
#include <sys/socket.h>
#include <time.h>

#include <array>

namespace devservice {
namespace {

std::string universalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

}  // namespace

ServiceState::ServiceState() : startedAt_(universalTime()) {}

bool ServiceState::waitFor(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  return !ended_.wait_for(lock, time, [this] { return ending_; });
}

void ServiceState::end() {
  std::lock_guard lock(mutex_);
  ending_ = true;
  ended_.notify_all();
  for (const int socket : streams_) shutdown(socket, SHUT_RDWR);
}

void ServiceState::addStream(int socket) {
  std::lock_guard lock(mutex_);
  streams_.insert(socket);
  if (ending_) shutdown(socket, SHUT_RDWR);
}

void ServiceState::removeStream(int socket) {
  std::lock_guard lock(mutex_);
  streams_.erase(socket);
}

void refuse(httplib::Response& response, std::string_view why) {
  response.status = 400;
  response.set_content(JsonObject().add("error", why).text(), kJsonType);
}

}  // namespace devservice
