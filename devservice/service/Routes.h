// What the development service serves: one function per family of routes, each in a file of its
// name, and what their handlers use. A new family needs a function here and a line in main.cpp.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace httplib {
class ContentReader;
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace devservice {

class ServiceState;

inline constexpr const char* kJsonType = "application/json";

// Answers 400 with a JSON object that tells why.
void refuse(httplib::Response& response, std::string_view why);

// Whether a body follows the head. Without either field that says so, none does (RFC 9112, 6.3).
[[nodiscard]] bool hasBody(const httplib::Request& request);

// All bytes of the body, whatever their type; absent when the client left before the end. For
// routes that are declared with a content reader.
[[nodiscard]] std::optional<std::string> readBody(const httplib::Request& request,
                                                  const httplib::ContentReader& reader);

// GET /status: since when the service runs and who asks.
// GET, POST, PUT, PATCH and DELETE /echo: a JSON object that tells what came: method, path, query,
// headers, size, body (bodyBase64 for what is no UTF-8), the JSON document that it is (json or
// jsonError), the parts of a form (parts or formError, see FormBody.h), and the client's
// certificate. With ?as=body it is the body itself, of the type that it came with, and with
// ?as=inputs an object with the values of a form's inputs. Whatever has another method than GET is
// announced in the feed.
void addEchoRoutes(httplib::Server& server, ServiceState& state);
// GET, POST /slow?ms=&pieces=    answers after that time; in pieces, with that time between any two
// GET /hold?count=&number=       answers with the number when so many wait; takes a thread for each
// GET, POST /code?status=&body=  that status, with a JSON object or with the given body
// GET, POST /redirect?to=&status=302
// GET /bytes?count=              so many bytes
// GET /large?megabytes=          a JSON document of that size, made while it is sent
// GET /reset?after=13            breaks the connection in mid-body, after so many bytes
void addTransferRoutes(httplib::Server& server, ServiceState& state);
// GET /image?format=png&role=   16 by 16; of format=svg with the given side=. The role goes into
// the content type.
// GET /icon/NAME                an icon of the menus of /desktop, a template in SVG
void addImageRoutes(httplib::Server& server);
// GET /feed?interval=: the feed as an event stream. With an interval in milliseconds a "tick" comes
// at least that often.
// GET /events: event streams; EventScript.h tells the parameters
void addStreamRoutes(httplib::Server& server, ServiceState& state);
// GET /menu: a document with a menu of every kind of item; what it submits goes to /echo
// GET /desktop: a document with what a desktop application shows of a service: the menus of its
// menu bar ("menu"), of its icon in the panel ("status") and a row of segments ("segments").
void addDocumentRoutes(httplib::Server& server);
// GET /notes: {"notes":[{"id":1,"text":"milk","form":{…}}],"form":{…}}, with the forms that delete
// a note and that add one. POST /notes adds one (Notes.h tells which bodies): 201 and the note.
// DELETE /notes/ID: {"deleted":1}. Each change is an event "notes" of the feed, with {"added":{…}}
// or {"deleted":1}. 403 for a change with an Origin that is not the service's own. GET /notes/page:
// all of it as a page, which follows the feed.
void addNotesRoutes(httplib::Server& server, ServiceState& state);
// GET of the files below `directory`; they go before all other routes. A path without a file is
// tried with ".json" too. Nothing outside the directory is served, whatever links lead there.
void addFileRoutes(httplib::Server& server, const std::filesystem::path& directory);

}  // namespace devservice
