// What the development service serves: one function per family of routes, one file each. A new
// family needs a function here and a line in Server.cpp.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

namespace httplib {
class Server;
struct Response;
}  // namespace httplib

namespace devservice {

// What handlers share. Used by many threads.
class ServiceState {
 public:
  ServiceState();

  [[nodiscard]] const std::string& startedAt() const noexcept { return startedAt_; }
  void countRequest() noexcept { ++requests_; }
  [[nodiscard]] std::int64_t requests() const noexcept { return requests_; }

  // Waits, but no longer than until the service ends; false when it does.
  [[nodiscard]] bool waitFor(std::chrono::milliseconds time);
  // Ends the waits and shuts down the sockets of the streams.
  void end();

  // A response without an end is sent through that socket; one that comes after the end of the
  // service is shut down at once. The socket must be removed before it is closed.
  void addStream(int socket);
  void removeStream(int socket);

 private:
  const std::string startedAt_;
  std::atomic<std::int64_t> requests_{0};
  std::mutex mutex_;
  std::condition_variable ended_;
  bool ending_ = false;    // protected by mutex_
  std::set<int> streams_;  // protected by mutex_
};

inline constexpr const char* kJsonType = "application/json";

// Answers 400 with a JSON object that tells why.
void refuse(httplib::Response& response, std::string_view why);

// GET /status
void addStatusRoutes(httplib::Server& server, ServiceState& state);
// GET, POST and PUT /echo
void addEchoRoutes(httplib::Server& server);
// GET /slow?ms=, /bytes?count=, /code?status=, /redirect?to=, /reset
void addTransferRoutes(httplib::Server& server, ServiceState& state);
// GET /events: event streams; EventScript.h tells the parameters
void addEventRoutes(httplib::Server& server, ServiceState& state);
// GET of the files below `directory`; they go before all other routes. A path without a file is
// tried with ".json" too. Nothing outside the directory is served, whatever links lead there.
void addDocumentRoutes(httplib::Server& server, const std::filesystem::path& directory);

}  // namespace devservice
