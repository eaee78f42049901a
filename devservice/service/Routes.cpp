#include "devservice/service/Routes.h"

#include "devservice/service/Json.h"

#include <httplib.h>

#include <utility>

namespace devservice {
namespace {

constexpr const char* kTypeField = "Content-Type";

// The library looks into multipart bodies, and refuses those that are not in the usual dialect, as
// long as it sees the field.
class HiddenType {
 public:
  // The library lets handlers only look at the request, which is not constant.
  explicit HiddenType(const httplib::Request& request)
      : headers_(const_cast<httplib::Headers&>(request.headers)),
        field_(headers_.extract(kTypeField)) {}
  ~HiddenType() {
    if (!field_.empty()) headers_.insert(std::move(field_));
  }
  HiddenType(const HiddenType&) = delete;
  HiddenType& operator=(const HiddenType&) = delete;

 private:
  httplib::Headers& headers_;
  httplib::Headers::node_type field_;
};

}  // namespace

void refuse(httplib::Response& response, std::string_view why) {
  response.status = 400;
  response.set_content(JsonObject().add("error", why).text(), kJsonType);
}

bool hasBody(const httplib::Request& request) {
  return request.has_header("Content-Length") || request.has_header("Transfer-Encoding");
}

std::optional<std::string> readBody(const httplib::Request& request,
                                    const httplib::ContentReader& reader) {
  std::string body;
  if (!hasBody(request)) return body;  // the library would wait for one
  const HiddenType hidden(request);
  const bool isWhole = reader([&body](const char* bytes, std::size_t count) {
    body.append(bytes, count);
    return true;
  });
  if (!isWhole) return std::nullopt;
  return body;
}

}  // namespace devservice
