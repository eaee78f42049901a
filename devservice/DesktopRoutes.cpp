#include "devservice/IconDrawings.h"
#include "devservice/Routes.h"

#include <httplib.h>

namespace devservice {
namespace {

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

void icon(const httplib::Request& request, httplib::Response& response) {
  if (const auto drawing = iconDrawing(request.matches[1].str()))
    return response.set_content(*drawing, "image/svg+xml; role=template");
  response.status = 404;
}

}  // namespace

void addDesktopRoutes(httplib::Server& server) {
  server.Get("/desktop", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(kDesktop, kJsonType);
  });
  server.Get("/icon/([a-z]+)", icon);
}

}  // namespace devservice
