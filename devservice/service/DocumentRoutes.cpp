// Documents: /menu and /desktop, which are always there, and the files of a directory.

#include "devservice/service/Routes.h"

#include <httplib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>

namespace devservice {
namespace {

namespace fs = std::filesystem;

// The item "print" is disabled: it has neither a form nor a sub-menu.
constexpr const char* kMenu = R"({"menu":[
{"type":"title","text":"Updates"},
{"type":"item","id":"install","text":"Install now","updates":3,"shortcut":"i","tooltip":"Restarts",
 "icon":"/image","subtext":"found on %date, takes %length",
 "locale":[{"find":"%date","type":"date","date":"2024-05-01T12:34:56Z"},
           {"find":"%length","type":"duration","seconds":120}],
 "form":{"id":"install","action":"/echo","method":"post",
         "inputs":[{"name":"what","value":"install"}]}},
{"type":"item","id":"check","text":"Check every day","state":"on",
 "subtext":"at %time","locale":[{"find":"%time","type":"time","seconds":27000}],
 "form":{"id":"check","action":"/echo","inputs":[{"name":"check","value":"no"}]}},
{"type":"item","id":"previews","text":"Previews","state":"mixed","updates":1,
 "form":{"id":"previews","action":"/echo?previews=all"}},
{"type":"divider"},
{"type":"title","text":"Documents"},
{"type":"item","id":"print","text":"Print","shortcut":"p"},
{"type":"item","text":"Open recent","subitems":[
 {"type":"item","id":"first","text":"first.txt","state":"off",
  "form":{"id":"open-first","action":"/echo","inputs":[{"name":"open","value":"first.txt"}]}},
 {"type":"divider"},
 {"type":"item","id":"clear","text":"Clear","form":{"id":"clear","action":"/echo","method":"delete"}}
]},
{"type":"item","id":"help","text":"Help","form":{"id":"help","action":"https://localhost/help"}}
]}
)";

// An input of "type" "file" is for a file that the user chooses; the framework leaves "type" and
// "label" to the host.
constexpr const char* kDesktop = R"({"menu":[
{"type":"item","text":"Documents","subitems":[
 {"type":"item","id":"report","text":"New report","icon":"/icon/report","shortcut":"r",
  "subtext":"with a title and an attachment",
  "form":{"id":"report","action":"/echo?as=inputs&form=report","method":"post","inputs":[
   {"name":"title","label":"Title","value":"Quarterly report"},
   {"name":"copies","label":"Copies","value":2},
   {"name":"draft","label":"Draft","value":true},
   {"name":"attachment","label":"Attachment","type":"file"}]}},
 {"type":"item","text":"Open recent","icon":"/icon/folder","subitems":[
  {"type":"item","id":"recent-1","text":"budget.ods","subtext":"changed on %date",
   "locale":[{"find":"%date","type":"date","date":"2024-05-01T12:34:56Z"}],
   "form":{"id":"recent-1","action":"/echo?open=1","method":"post"}},
  {"type":"item","id":"recent-2","text":"minutes.txt","subtext":"changed on %date",
   "locale":[{"find":"%date","type":"date","date":"2024-04-30T08:05:00Z"}],
   "form":{"id":"recent-2","action":"/echo?open=2","method":"post"}},
  {"type":"divider"},
  {"type":"item","id":"clear","text":"Clear the list","icon":"/icon/trash",
   "form":{"id":"clear","action":"/echo?clear=recent","method":"delete"}}]},
 {"type":"divider"},
 {"type":"title","text":"On this computer"},
 {"type":"item","id":"offline","text":"Keep offline","state":"on",
  "form":{"id":"offline","action":"/echo?offline=no","method":"post"}},
 {"type":"item","id":"encrypt","text":"Encrypt","state":"mixed","icon":"/icon/lock",
  "tooltip":"3 of 5 folders are encrypted",
  "form":{"id":"encrypt","action":"/echo?encrypt=all","method":"post"}},
 {"type":"item","text":"Print","icon":"/icon/print","shortcut":"p"}]},
{"type":"item","text":"Updates","subitems":[
 {"type":"title","text":"Available"},
 {"type":"item","id":"install","text":"Install now","icon":"/icon/download","shortcut":"i",
  "updates":3,"subtext":"found on %date, takes %length",
  "locale":[{"find":"%date","type":"date","date":"2024-05-01T12:34:56Z"},
            {"find":"%length","type":"duration","seconds":120}],
  "form":{"id":"install","action":"/echo?install=all","method":"post"}},
 {"type":"item","id":"previews","text":"Previews","icon":"/icon/preview","updates":1,
  "form":{"id":"previews","action":"/echo?install=previews","method":"post"}},
 {"type":"divider"},
 {"type":"item","id":"daily","text":"Check every day","state":"on","subtext":"at %time",
  "locale":[{"find":"%time","type":"time","seconds":27000}],
  "form":{"id":"daily","action":"/echo?daily=no","method":"post"}}]},
{"type":"item","text":"Help","subitems":[
 {"type":"item","id":"feedback","text":"Send feedback","icon":"/icon/message",
  "form":{"id":"feedback","action":"/echo?as=inputs&form=feedback","method":"post","inputs":[
   {"name":"subject","label":"Subject"},
   {"name":"message","label":"Message"},
   {"name":"picture","label":"Picture","type":"file"}]}},
 {"type":"item","id":"manual","text":"Manual on the web","icon":"/icon/help",
  "form":{"id":"manual","action":"https://localhost/manual"}}]}
],
"status":[
 {"type":"title","text":"Local service"},
 {"type":"item","id":"status-install","text":"Install now","icon":"/icon/download","updates":3,
  "form":{"id":"status-install","action":"/echo?install=all","method":"post"}},
 {"type":"item","id":"status-later","text":"Remind me later","icon":"/icon/clock",
  "form":{"id":"status-later","action":"/echo?remind=later","method":"post"}},
 {"type":"divider"},
 {"type":"item","id":"status-pause","text":"Pause","state":"off",
  "form":{"id":"status-pause","action":"/echo?pause=yes","method":"post"}}
],
"segments":[
 {"type":"item","id":"synchronise","text":"Synchronise","tooltip":"Fetches what has changed",
  "form":{"id":"synchronise","action":"/echo?synchronise=now","method":"post"}},
 {"type":"item","text":"Share","subitems":[
  {"type":"item","id":"share-link","text":"Copy a link","icon":"/icon/share",
   "form":{"id":"share-link","action":"/echo?share=link","method":"post"}},
  {"type":"item","id":"share-team","text":"With the team","icon":"/icon/message",
   "form":{"id":"share-team","action":"/echo?share=team","method":"post"}}]},
 {"type":"item","text":"Archive"}
]}
)";

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

void addDocumentRoutes(httplib::Server& server) {
  server.Get("/menu", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(kMenu, kJsonType);
  });
  server.Get("/desktop", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(kDesktop, kJsonType);
  });
}

void addFileRoutes(httplib::Server& server, const fs::path& directory) {
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
