#include "platform/urlloading/ResponseHead.h"

#include "platform/core/ASCII.h"
#include "platform/urlloading/RequestCheck.h"

#include <array>
#include <charconv>
#include <string>

namespace kvl::urlloading {
namespace {

constexpr std::string_view kProtocolPrefix = "HTTP/";
constexpr int kFirstFinalStatus = 200;

// Versions and statuses have three digits at most.
int numberIn(std::string_view text) {
  int number = 0;
  text = text.substr(0, 3);
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// "1.1" is 11, "2" is 20.
int versionIn(std::string_view text) {
  const auto point = text.find('.');
  const int minor = point == std::string_view::npos ? 0 : numberIn(text.substr(point + 1));
  return 10 * numberIn(text.substr(0, point)) + minor;
}

constexpr int kMovedPermanently = 301;
constexpr int kFound = 302;
constexpr int kSeeOther = 303;
constexpr int kTemporaryRedirect = 307;
constexpr int kPermanentRedirect = 308;

constexpr std::array<std::string_view, 3> kFieldsOfOneOrigin = {"Authorization", "Cookie", "Host"};
constexpr std::array<std::string_view, 7> kFieldsOfABody = {
    "Content-Encoding", "Content-Language", "Content-Length",   "Content-Location",
    "Content-Type",     "Content-MD5",      "Transfer-Encoding"};

bool isRedirect(int status) {
  return (status >= kMovedPermanently && status <= kSeeOther) || status == kTemporaryRedirect ||
         status == kPermanentRedirect;
}

bool becomesGet(int status, const std::string& method) {
  if (status == kSeeOther) return method != "GET" && method != "HEAD";
  return (status == kMovedPermanently || status == kFound) && method == "POST";
}

template <std::size_t N>
void removeFields(HeaderFields& headers, const std::array<std::string_view, N>& names) {
  for (const auto name : names) headers.remove(name);
}

// The target takes over the fragment unless it has one of its own (RFC 9110, 10.2.2).
std::optional<URL> withInheritedFragment(const URL& target, const URL& source) {
  if (target.fragment() || !source.fragment()) return target;
  return URL::parse(target.absoluteString() + "#" + std::string(*source.fragment()));
}

std::optional<URL> redirectTarget(const URL& source, const HeaderFields& fields) {
  const auto location = fields.find("Location");
  if (!location) return std::nullopt;
  const auto reference = URL::parse(*location);
  if (!reference) return std::nullopt;
  const URL target = reference->resolvedAgainst(source);
  if (!isLoadable(target) || !namesHost(target)) return std::nullopt;
  if (isSecure(source) && !isSecure(target)) return std::nullopt;
  return withInheritedFragment(target, source);
}

// Another port of the same machine may belong to another user.
bool isSameOrigin(const URL& a, const URL& b) {
  constexpr std::uint16_t kDefaultPort = 443;
  return isSecure(a) == isSecure(b) && isSameHost(a, b) &&
         (a.port() == b.port() ||
          (isSecure(a) && a.port().value_or(kDefaultPort) == b.port().value_or(kDefaultPort)));
}

}  // namespace

bool ResponseHead::take(std::string_view line) {
  if (complete_) return false;
  if (begins_ && line.starts_with(kProtocolPrefix)) {
    begins_ = false;
    takeStatusLine(line);
  } else if (ascii::trimmed(line).empty()) {
    complete_ = status_ >= kFirstFinalStatus;
    begins_ = !complete_;
  } else {
    takeField(line);
  }
  return complete_;
}

void ResponseHead::takeStatusLine(std::string_view line) {
  fields_.clear();
  const auto space = line.find(' ');
  version_ = versionIn(line.substr(kProtocolPrefix.size(), space - kProtocolPrefix.size()));
  status_ = space == std::string_view::npos ? 0 : numberIn(ascii::trimmed(line.substr(space)));
}

void ResponseHead::takeField(std::string_view line) {
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  fields_.append(ascii::trimmed(line.substr(0, colon)), ascii::trimmed(line.substr(colon + 1)));
}

std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                            const HeaderFields& fields) {
  if (!isRedirect(status)) return std::nullopt;
  const URL& source = *request.url();
  const auto target = redirectTarget(source, fields);
  if (!target) return std::nullopt;
  URLRequest next = request;
  next.setURL(*target);
  if (!isSameOrigin(source, *target)) removeFields(next.headers(), kFieldsOfOneOrigin);
  if (becomesGet(status, request.method())) {
    next.setMethod("GET");
    next.setBody(std::nullopt);
    removeFields(next.headers(), kFieldsOfABody);
  }
  return next;
}

}  // namespace kvl::urlloading
