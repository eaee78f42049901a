#include "devservice/Routes.h"

#include <httplib.h>

namespace devservice {
namespace {

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

}  // namespace

void addMenuRoutes(httplib::Server& server) {
  server.Get("/menu", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(kMenu, kJsonType);
  });
}

}  // namespace devservice
