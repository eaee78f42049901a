// Notes, for the example hosts: a document, submissions, and a page for a web view.

#include "devservice/service/Json.h"
#include "devservice/service/Notes.h"
#include "devservice/service/Parameters.h"
#include "devservice/service/Routes.h"
#include "devservice/service/ServiceState.h"

#include <httplib.h>

#include <memory>
#include <string>

namespace devservice {
namespace {

constexpr const char* kPagePath = "/notes/page";

// Works without its script, which only keeps the list up to date. The script asks with
// XMLHttpRequest, which web views grant to a scheme of the host's own more readily than fetch.
constexpr const char* kPageHead = R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<title>Notes</title>
<style>
body { font-family: sans-serif; margin: 2em; }
li { margin: .4em 0; }
li button { margin-left: 1em; }
#state { color: gray; }
</style>
<h1><img id="picture" src="/image" alt="" width="16" height="16"> Notes</h1>
<ul id="notes">
)";
constexpr const char* kPageTail = R"(</ul>
<form id="add" method="post" action="/notes">
<input name="text" id="text" autofocus required maxlength="1000"> <button>Add</button>
</form>
<p id="state">not connected</p>
<script>
const list = document.getElementById('notes');
const state = document.getElementById('state');
function ask(method, path, then) {
  const request = new XMLHttpRequest();
  request.open(method, path);
  request.onload = () => then(request);
  request.send();
}
function item(id, text) {
  const element = document.createElement('li');
  element.dataset.id = id;
  element.textContent = text;
  return element;
}
function withButton(element) {
  const button = document.createElement('button');
  button.textContent = 'Delete';
  button.onclick = () => ask('DELETE', '/notes/' + element.dataset.id, () => {});
  element.append(button);
  return element;
}
function show(notes) {
  list.replaceChildren(...notes.map(note => withButton(item(note.id, note.text))));
}
function load() {
  ask('GET', '/notes', request => show(JSON.parse(request.responseText).notes));
}
for (const element of list.children) withButton(element);
const feed = new EventSource('/feed');
feed.onopen = () => { state.textContent = 'connected'; };
feed.onerror = () => { state.textContent = 'not connected'; };
feed.addEventListener('notes', load);
</script>
</html>
)";

void notFound(httplib::Response& response) {
  response.status = 404;
  response.set_content(JsonObject().add("error", "There is no such note.").text(), kJsonType);
}

// Browsers say whose page asks for a change. Nothing comes from pages that a host shows, whose
// address is not the service's.
bool isOfAnotherOrigin(const httplib::Request& request) {
  return request.has_header("Origin") &&
         (request.get_header_value_count("Origin") != 1 ||
          request.get_header_value("Origin") != "https://" + request.get_header_value("Host"));
}

void forbid(httplib::Response& response) {
  response.status = 403;
  response.set_content(JsonObject().add("error", "Another page asked for this.").text(), kJsonType);
}

// A browser that has sent a form is led back to the page, everybody else gets the note.
void add(Notes& notes, const httplib::Request& request, const std::string& body,
         httplib::Response& response) {
  if (isOfAnotherOrigin(request)) return forbid(response);
  const std::string type = request.get_header_value("Content-Type");
  const auto text = noteFrom(type, body);
  if (const auto* fault = std::get_if<NoteFault>(&text)) return refuse(response, fault->reason);
  const auto note = notes.add(std::get<std::string>(text));
  if (!note) return refuse(response, "There is no room for another note.");
  if (type.starts_with("application/x-www-form-urlencoded"))
    return response.set_redirect(kPagePath, 303);
  response.status = 201;
  response.set_content(*note, kJsonType);
}

void remove(Notes& notes, const httplib::Request& request, httplib::Response& response) {
  if (isOfAnotherOrigin(request)) return forbid(response);
  const auto number = wholeNumber(request.matches[1].str());
  if (!number || !notes.remove(*number)) return notFound(response);
  response.set_content(JsonObject().add("deleted", *number).text(), kJsonType);
}

}  // namespace

void addNotesRoutes(httplib::Server& server, ServiceState& state) {
  const auto notes = std::make_shared<Notes>(state.feed());
  server.Get("/notes", [notes](const httplib::Request&, httplib::Response& response) {
    response.set_content(notes->document(), kJsonType);
  });
  server.Get(kPagePath, [notes](const httplib::Request&, httplib::Response& response) {
    response.set_content(kPageHead + notes->listItems() + kPageTail, "text/html; charset=utf-8");
  });
  server.Post("/notes", [notes](const auto& request, auto& response, const auto& reader) {
    if (const auto body = readBody(request, reader)) add(*notes, request, *body, response);
  });
  server.Delete("/notes/([0-9]+)",
                [notes](const auto& request, auto& response, const auto& reader) {
                  if (readBody(request, reader)) remove(*notes, request, response);
                });
}

}  // namespace devservice
