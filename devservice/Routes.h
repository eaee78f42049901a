// What the development service serves: one function per family of routes, one file each. A new
// family needs a function here and a line in Server.cpp.
#pragma once

#include "devservice/Feed.h"

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

  [[nodiscard]] Feed& feed() noexcept { return feed_; }

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
  Feed feed_;
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
// GET, POST, PUT, PATCH and DELETE /echo: a JSON object that tells what came: method, path, query,
// headers, size, body (bodyBase64 for what is no UTF-8), the JSON document that it is (json or
// jsonError), the parts of a form (parts or formError, see FormBody.h), and the client's
// certificate. With ?as=body it is the body itself, of the type that it came with, and with
// ?as=inputs an object with the values of a form's inputs. Whatever has another method than GET is
// announced in the feed.
void addEchoRoutes(httplib::Server& server, ServiceState& state);
// GET, POST /slow?ms=&pieces=    answers after that time; in pieces, with that time between any two
// GET, POST /code?status=&body=  that status, with a JSON object or with the given body
// GET, POST /redirect?to=&status=302
// GET /bytes?count=              so many bytes
// GET /large?megabytes=          a JSON document of that size, made while it is sent
// GET /reset?after=13            breaks the connection in mid-body, after so many bytes
void addTransferRoutes(httplib::Server& server, ServiceState& state);
// GET /image?format=png&role=   16 by 16; of format=svg with the given side=. The role goes into
// the content type.
void addImageRoutes(httplib::Server& server);
// GET /menu: a document with a menu of every kind of item; what it submits goes to /echo
void addMenuRoutes(httplib::Server& server);
// GET /desktop: a document with what a desktop application shows of a service: the menus of its
// menu bar ("menu"), of its icon in the panel ("status") and a row of segments ("segments").
// GET /icon/NAME: an icon of those menus, a template in SVG
void addDesktopRoutes(httplib::Server& server);
// GET /feed?interval=: the feed as an event stream. With an interval in milliseconds a "tick" comes
// at least that often.
void addFeedRoutes(httplib::Server& server, ServiceState& state);
// GET /events: event streams; EventScript.h tells the parameters
void addEventRoutes(httplib::Server& server, ServiceState& state);
// GET of the files below `directory`; they go before all other routes. A path without a file is
// tried with ".json" too. Nothing outside the directory is served, whatever links lead there.
void addDocumentRoutes(httplib::Server& server, const std::filesystem::path& directory);

}  // namespace devservice
