#include "devservice/service/FormBody.h"

#include <algorithm>

namespace devservice {
namespace {

constexpr std::string_view kBoundaryParameter = "; boundary=";
constexpr std::size_t kBoundaryLength = 12;
constexpr std::string_view kDisposition = "Content-Disposition: form-data; name=\"";
constexpr std::string_view kFilename = "; filename=\"";
constexpr std::string_view kContentType = "Content-Type: ";

bool isLetterOrDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Removes `prefix` from the front of `text` if it is there.
bool take(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// What comes before `end`, which goes as well; absent when it does not occur.
std::optional<std::string_view> takeUntil(std::string_view& text, std::string_view end) {
  const std::size_t position = text.find(end);
  if (position == std::string_view::npos) return std::nullopt;
  const std::string_view taken = text.substr(0, position);
  text.remove_prefix(position + end.size());
  return taken;
}

// Empty when there is none of the right form.
std::string_view boundaryOf(std::string_view contentType) {
  const bool isForm = take(contentType, kFormType) && take(contentType, kBoundaryParameter);
  const bool isRight = isForm && contentType.size() == kBoundaryLength &&
                       std::all_of(contentType.begin(), contentType.end(), isLetterOrDigit);
  return isRight ? contentType : std::string_view();
}

// Each of these returns what is wrong, an empty text for nothing.
std::string readDisposition(std::string_view line, FormPart& part) {
  if (!take(line, kDisposition)) return "it has no disposition of a form's input with a name";
  const auto name = takeUntil(line, "\"");
  if (!name) return "its name does not end";
  part.name = *name;
  if (line.empty()) return {};
  if (!take(line, kFilename)) return "something else than a file name follows its name";
  part.filename = takeUntil(line, "\"");
  return part.filename && line.empty() ? "" : "its file name does not end the line";
}

std::string readPart(std::string_view text, FormPart& part) {
  auto head = takeUntil(text, "\n\n");
  if (!head) return "no empty line follows its header lines";
  if (head->find('\r') != std::string_view::npos) return "a header line holds a carriage return";
  part.content = text;
  const std::size_t end = std::min(head->find('\n'), head->size());
  std::string fault = readDisposition(head->substr(0, end), part);
  head->remove_prefix(end);
  if (!fault.empty() || head->empty()) return fault;
  if (!take(*head, "\n") || !take(*head, kContentType) || head->find('\n') != std::string::npos)
    return "it has another header line than a content type";
  part.contentType = *head;
  return {};
}

}  // namespace

std::variant<std::vector<FormPart>, std::string> parseForm(std::string_view contentType,
                                                           std::string_view body) {
  const std::string_view boundary = boundaryOf(contentType);
  if (boundary.empty()) return "the boundary is not twelve letters and digits";
  const std::string delimiter = "\n--" + std::string(boundary);
  if (!take(body, std::string_view(delimiter).substr(1))) return "the first boundary is missing";
  std::vector<FormPart> parts;
  while (take(body, "\n")) {
    const auto text = takeUntil(body, delimiter);
    if (!text) return "the last boundary is missing";
    const std::string fault = readPart(*text, parts.emplace_back());
    if (!fault.empty()) return "part " + std::to_string(parts.size()) + ": " + fault;
  }
  if (body != "--\n") return "the last boundary is not followed by two hyphens and a line feed";
  return parts;
}

}  // namespace devservice
