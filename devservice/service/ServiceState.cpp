#include "devservice/service/ServiceState.h"

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
  const auto deadline = std::chrono::steady_clock::now() + time;
  kvl::MutexLock lock(mutex_);
  while (!ending_ && ended_.waitUntil(lock, deadline)) {
  }
  return !ending_;
}

bool ServiceState::gather(std::int64_t count) {
  kvl::MutexLock lock(mutex_);
  const auto gathering = gatherings_;
  if (++waiting_ >= count) {
    waiting_ = 0;
    ++gatherings_;
    gathered_.notifyAll();
  }
  while (!ending_ && gatherings_ == gathering) gathered_.wait(lock);
  return gatherings_ != gathering;
}

void ServiceState::end() {
  const kvl::MutexLock lock(mutex_);
  ending_ = true;
  ended_.notifyAll();
  gathered_.notifyAll();
  for (const int socket : streams_) shutdown(socket, SHUT_RDWR);
}

void ServiceState::addStream(int socket) {
  const kvl::MutexLock lock(mutex_);
  streams_.insert(socket);
  if (ending_) shutdown(socket, SHUT_RDWR);
}

void ServiceState::removeStream(int socket) {
  const kvl::MutexLock lock(mutex_);
  streams_.erase(socket);
}

}  // namespace devservice
