#include "devservice/service/Notes.h"

#include "devservice/service/Feed.h"
#include "devservice/service/FormBody.h"
#include "devservice/service/Json.h"

#include <glib.h>
#include <simdjson.h>

#include <memory>
#include <utility>

namespace devservice {
namespace {

constexpr std::string_view kJson = "application/json";
constexpr std::string_view kBrowserForm = "application/x-www-form-urlencoded";
constexpr const char* kTextName = "text";

constexpr const char* kAddForm = R"({"id":"add-note","action":"/notes","method":"post",)"
                                 R"("inputs":[{"name":"text","label":"Text","value":""}]})";

using Table = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;

std::optional<std::string> textOfJson(std::string_view body) {
  simdjson::dom::parser parser;
  std::string_view text;
  const simdjson::padded_string padded(body);
  if (parser.parse(padded)[kTextName].get(text) != simdjson::SUCCESS) return std::nullopt;
  return std::string(text);
}

std::optional<std::string> textOfForm(std::string_view contentType, std::string_view body) {
  const auto form = parseForm(contentType, body);
  if (const auto* parts = std::get_if<std::vector<FormPart>>(&form)) {
    for (const FormPart& part : *parts)
      if (part.name == kTextName) return std::string(part.content);
  }
  return std::nullopt;
}

std::optional<std::string> textOfBrowserForm(std::string_view body) {
  if (body.empty()) return std::nullopt;
  const Table inputs(g_uri_parse_params(body.data(), static_cast<gssize>(body.size()), "&",
                                        G_URI_PARAMS_WWW_FORM, nullptr),
                     [](GHashTable* table) {
                       if (table != nullptr) g_hash_table_unref(table);
                     });
  const auto* text =
      inputs ? static_cast<const char*>(g_hash_table_lookup(inputs.get(), kTextName)) : nullptr;
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

std::optional<std::string> textOf(std::string_view contentType, std::string_view body) {
  if (contentType.starts_with(kFormType)) return textOfForm(contentType, body);
  if (contentType.starts_with(kBrowserForm)) return textOfBrowserForm(body);
  return textOfJson(body);
}

bool isKnown(std::string_view contentType) {
  return contentType.starts_with(kFormType) || contentType.starts_with(kBrowserForm) ||
         contentType.starts_with(kJson);
}

JsonObject noteObject(std::int64_t number, const std::string& text) {
  JsonObject note;
  note.add("id", number).add(kTextName, text);
  return note;
}

std::string deleteForm(std::int64_t number) {
  const std::string name = std::to_string(number);
  return JsonObject()
      .add("id", "delete-note-" + name)
      .add("action", "/notes/" + name)
      .add("method", "delete")
      .text();
}

std::string escaped(const std::string& text) {
  const std::unique_ptr<char, decltype(&g_free)> copy(
      g_markup_escape_text(text.data(), static_cast<gssize>(text.size())), g_free);
  return copy.get();
}

}  // namespace

std::variant<std::string, NoteFault> noteFrom(std::string_view contentType, std::string_view body) {
  if (!isKnown(contentType)) return NoteFault{"A note comes as JSON or as a form."};
  auto text = textOf(contentType, body);
  if (!text) return NoteFault{"A note needs a text."};
  if (text->size() > kLongestNote) return NoteFault{"A note has 4000 bytes at most."};
  if (g_utf8_validate(text->data(), static_cast<gssize>(text->size()), nullptr) == FALSE)
    return NoteFault{"A note is UTF-8."};
  if (text->find_first_not_of(" \t\r\n") == std::string::npos)
    return NoteFault{"A note needs a text."};
  return *std::move(text);
}

std::optional<std::string> Notes::add(const std::string& text) {
  const kvl::MutexLock lock(mutex_);
  if (notes_.size() >= kMostNotes) return std::nullopt;
  notes_.emplace(++last_, text);
  const JsonObject note = noteObject(last_, text);
  feed_.publish("notes", JsonObject().add("added", note).text());
  return note.text();
}

bool Notes::remove(std::int64_t number) {
  const kvl::MutexLock lock(mutex_);
  if (notes_.erase(number) == 0) return false;
  feed_.publish("notes", JsonObject().add("deleted", number).text());
  return true;
}

std::string Notes::document() const {
  const kvl::MutexLock lock(mutex_);
  JsonArray list;
  for (const auto& [number, text] : notes_)
    list.add(noteObject(number, text).addJson("form", deleteForm(number)).text());
  return JsonObject().addJson("notes", list.text()).addJson("form", kAddForm).text();
}

std::string Notes::listItems() const {
  const kvl::MutexLock lock(mutex_);
  std::string items;
  for (const auto& [number, text] : notes_)
    items += "<li data-id=\"" + std::to_string(number) + "\">" + escaped(text) + "</li>\n";
  return items;
}

}  // namespace devservice
