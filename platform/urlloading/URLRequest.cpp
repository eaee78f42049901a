// Requests, header fields and the names of status codes.
#include "platform/core/ASCII.h"
#include "platform/urlloading/RequestCheck.h"

#include <local/platform/URLRequest.h>

#include <algorithm>
#include <iterator>

namespace kvl {
namespace {

auto hasName(std::string_view name) {
  return [name](const HeaderFields::Field& field) {
    return ascii::equalIgnoringCase(field.first, name);
  };
}

// Most heads have about as many; growing to them one by one costs more than the fields do.
constexpr std::size_t kUsualFields = 8;

struct StatusText {
  std::int64_t code;
  std::string_view text;
};

// IANA's registry of HTTP status codes, in order.
constexpr StatusText kTexts[] = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {102, "Processing"},
    {103, "Early Hints"},
    {104, "Upload Resumption Supported"},
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {207, "Multi-Status"},
    {208, "Already Reported"},
    {226, "IM Used"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {425, "Too Early"},
    {426, "Upgrade Required"},
    {428, "Precondition Required"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {451, "Unavailable For Legal Reasons"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
    {505, "HTTP Version Not Supported"},
    {506, "Variant Also Negotiates"},
    {507, "Insufficient Storage"},
    {508, "Loop Detected"},
    {510, "Not Extended"},
    {511, "Network Authentication Required"},
};
static_assert(std::ranges::is_sorted(kTexts, {}, &StatusText::code));

constexpr std::string_view kClassTexts[] = {"Informational", "Success", "Redirection",
                                            "Client Error", "Server Error"};

std::string_view classText(std::int64_t code) noexcept {
  if (code < 100 || code > 599) return "Unknown Status";
  return kClassTexts[code / 100 - 1];
}

}  // namespace

URLRequest::URLRequest(std::string_view urlText) : url_(URL::parse(urlText)) {
  if (!url_) invalidURLText_ = urlText;
}

std::optional<std::string_view> HeaderFields::find(std::string_view name) const noexcept {
  const auto field = std::find_if(fields_.begin(), fields_.end(), hasName(name));
  if (field == fields_.end()) return std::nullopt;
  return field->second;
}

void HeaderFields::set(std::string_view name, std::string_view value) {
  const auto first = std::find_if(fields_.begin(), fields_.end(), hasName(name));
  if (first == fields_.end()) return append(name, value);
  // A new pair first: the arguments may be views of this very field.
  *first = Field(name, value);
  const std::string kept = first->first;
  fields_.erase(std::remove_if(first + 1, fields_.end(), hasName(kept)), fields_.end());
}

void HeaderFields::append(std::string_view name, std::string_view value) {
  if (fields_.capacity() == 0) fields_.reserve(kUsualFields);
  fields_.emplace_back(name, value);
}

void HeaderFields::remove(std::string_view name) {
  const std::string removed(name);
  std::erase_if(fields_, hasName(removed));
}

bool isSendableHeaderField(std::string_view name, std::string_view value) noexcept {
  constexpr std::string_view kForbidden("\r\n\0", 3);
  return urlloading::isToken(name) && value.find_first_of(kForbidden) == std::string_view::npos;
}

std::string_view localizedStringForStatusCode(std::int64_t statusCode) noexcept {
  const auto* found = std::ranges::lower_bound(kTexts, statusCode, {}, &StatusText::code);
  if (found != std::end(kTexts) && found->code == statusCode) return found->text;
  return classText(statusCode);
}

}  // namespace kvl
