#include "platform/urlloading/Redirect.h"

#include "platform/core/ASCII.h"
#include "platform/urlloading/RequestCheck.h"

#include <array>
#include <string>

namespace kvl::urlloading {
namespace {

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
  if (!isLoadable(target) || (isSecure(source) && !isSecure(target))) return std::nullopt;
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

bool isSameHost(const URL& a, const URL& b) noexcept {
  const auto first = a.host();
  const auto second = b.host();
  return first && second && ascii::equalIgnoringCase(*first, *second);
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
