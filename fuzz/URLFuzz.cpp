// Any text: it is a URL exactly when the grammar of RFC 3986 says so, its components are where the
// expression in there finds them, libcurl would go to the same host and port, and a reference leads
// to where another reading of the rules leads.
#include "fuzz/Expression.h"
#include "fuzz/Target.h"
#include "platform/core/ASCII.h"
#include "platform/urlloading/RequestCheck.h"

#include <local/platform/URL.h>

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using kvl::URL;
using kvl::fuzz::Expression;
using kvl::fuzz::require;

const std::string kUnreserved = R"([A-Za-z0-9\-._~!$&'()*+,;=])";
const std::string kEscape = "%[0-9A-Fa-f]{2}";

std::string anyOf(const std::string& more) {
  return "(?:" + kUnreserved + "|" + kEscape + "|[" + more + "])";
}

// RFC 3986, appendix A; what stands in brackets is not looked at closely.
std::string grammar() {
  const auto plain = "(?:" + kUnreserved + "|" + kEscape + ")";
  const auto segment = anyOf(":@");
  const auto host = R"((?:\[(?:)" + kUnreserved + R"(|:)+\]|)" + plain + "*)";
  const auto authority = "(?:" + anyOf(":") + "*@)?" + host + "(?::[0-9]*)?";
  const auto more = "(?:/" + segment + "*)*";
  const auto absolute = "/(?:" + segment + "+" + more + ")?";
  const auto rooted = "(?://" + authority + more + "|" + absolute;
  const auto withScheme = "[A-Za-z][A-Za-z0-9+.\\-]*:" + rooted + "|" + segment + "+" + more + "|)";
  const auto relative = rooted + "|" + anyOf("@") + "+" + more + "|)";
  return "(?:" + withScheme + "|" + relative + ")(?:\\?" + anyOf("/?:@") + "*)?(?:#" +
         anyOf("/?:@") + "*)?";
}

std::string plus(std::optional<std::string_view> part, const char* before, const char* behind) {
  return part ? before + std::string(*part) + behind : std::string();
}

// RFC 3986, appendix B.
void compareComponents(const URL& url) {
  static const Expression expression(
      R"((?:([^:/?#]+):)?(?://([^/?#]*))?([^?#]*)(?:\?([^#]*))?(?:#(.*))?)");
  const auto parts = expression.groups(url.absoluteString());
  require(parts.size() == 6, "the expression finds components in every text");
  require(plus(url.scheme(), "", ":") == plus(parts[1], "", ":"), "the scheme is there");
  require(plus(url.authority(), "//", "") == plus(parts[2], "//", ""), "the authority is there");
  require(url.path() == parts[3].value_or(""), "the path is there");
  require(plus(url.query(), "?", "") == plus(parts[4], "?", ""), "the query is there");
  require(plus(url.fragment(), "#", "") == plus(parts[5], "#", ""), "the fragment is there");
}

std::string lower(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) { return kvl::ascii::toLower(c); });
  return text;
}

std::string partOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, curl_free);
  return text;
}

// Trust is in the host that the framework reads, and the connection goes to the one that libcurl
// reads. Escapes, and numbers that are an address in another spelling, never match a certificate.
void compareDestination(const URL& url) {
  const std::string host(url.host().value_or(""));
  if (!kvl::urlloading::isLoadable(url) || !kvl::urlloading::namesHost(url)) return;
  if (host.find('%') != std::string::npos) return;
  if (host.find_first_not_of("0123456789abcdefxABCDEFX.:") == std::string::npos) return;
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> other(curl_url(), curl_url_cleanup);
  if (curl_url_set(other.get(), CURLUPART_URL, url.absoluteString().c_str(), CURLU_PATH_AS_IS) !=
      CURLUE_OK)
    return;
  require(lower(partOf(other.get(), CURLUPART_HOST)) == lower(host), "libcurl goes to that host");
  const int port = url.port().value_or(kvl::urlloading::isSecure(url) ? 443 : 80);
  require(partOf(other.get(), CURLUPART_PORT) == std::to_string(port), "libcurl goes to that port");
}

// RFC 3986, 5.2.4, by segments; `path` begins with a slash.
std::string withoutDots(std::string_view path) {
  std::vector<std::string_view> kept;
  bool endsOpen = false;
  while (!path.empty()) {
    path.remove_prefix(1);
    const auto segment = path.substr(0, path.find('/'));
    path.remove_prefix(segment.size());
    endsOpen = segment == "." || segment == "..";
    if (!endsOpen) kept.push_back(segment);
    if (segment == ".." && !kept.empty()) kept.pop_back();
  }
  std::string result;
  for (const auto segment : kept) (result += '/') += segment;
  return endsOpen ? result + '/' : result;
}

// RFC 3986, 5.2.2. None where it makes a path that begins without a slash of what does.
std::optional<std::string> resolvedText(const URL& reference, const URL& base) {
  if (reference.scheme()) return reference.absoluteString();
  auto authority = base.authority();
  auto query = reference.query();
  std::string path(reference.path());
  if (reference.authority()) {
    authority = reference.authority();
  } else if (path.empty()) {
    if (!query) query = base.query();
  } else if (!path.starts_with('/')) {
    const auto folder = std::string(base.path().substr(0, base.path().rfind('/') + 1));
    path = (authority && base.path().empty() ? "/" : folder) + path;
  }
  const bool isBases = reference.path().empty() && !reference.authority();
  if (!isBases && !path.empty() && !path.starts_with('/')) return std::nullopt;
  path = isBases ? std::string(base.path()) : withoutDots(path);
  if (!authority && path.starts_with("//")) path = "/." + path;
  return plus(base.scheme(), "", ":") + plus(authority, "//", "") + path + plus(query, "?", "") +
         plus(reference.fragment(), "#", "");
}

void compareResolved(const URL& reference, const URL& base) {
  const URL result = reference.resolvedAgainst(base);
  const auto expected = resolvedText(reference, base);
  require(!expected || result.absoluteString() == *expected, "it leads to where the rules lead");
  const auto read = URL::parse(result.absoluteString());
  require(read.has_value(), "what it leads to is a URL");
  compareComponents(result);
  require(result.resolvedAgainst(base) == result, "an absolute one leads to itself");
}

// The text, and behind a line end what it is resolved against.
void checkURL(kvl::fuzz::Input input) {
  static const Expression valid(grammar());
  const auto all = kvl::fuzz::textOf(input);
  const auto text = all.substr(0, all.find('\n'));
  const auto url = URL::parse(text);
  require(url.has_value() == valid.matches(text), "the grammar says what is a URL");
  if (!url) return;
  require(url->absoluteString() == text, "its text stays as it is");
  compareComponents(*url);
  compareDestination(*url);
  const auto base = URL::parse(all.substr(std::min(text.size() + 1, all.size())));
  if (base && base->isAbsolute()) compareResolved(*url, *base);
}

const kvl::fuzz::Target urls("url", checkURL);

}  // namespace
