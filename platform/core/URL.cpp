// RFC 3986. Written here because the URI libraries at hand normalise what they parse (percent
// escapes, empty components), while a URL that is given whole must go out as it stands.
#include "platform/core/ASCII.h"

#include <local/platform/URL.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace kvl {
namespace {

constexpr bool isHex(char c) {
  return ascii::hexDigit(c) >= 0;
}
constexpr bool isOneOf(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}
constexpr bool isUnreservedOrSubDelimiter(char c) {
  return ascii::isLetterOrDigit(c) || isOneOf("-._~!$&'()*+,;=", c);
}

// Whether every character is unreserved, a sub-delimiter, one of `more` or a percent escape.
bool consistsOf(std::string_view text, std::string_view more) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isUnreservedOrSubDelimiter(text[i]) || isOneOf(more, text[i])) continue;
    if (text[i] != '%' || i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2])) {
      return false;
    }
    i += 2;
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && ascii::isLetter(text[0]) && std::ranges::all_of(text, [](char c) {
    return ascii::isLetterOrDigit(c) || isOneOf("+-.", c);
  });
}

bool isPortOrEmpty(std::string_view text) {
  return std::ranges::all_of(text, ascii::isDigit);
}

struct HostAndPort {
  std::string_view host;  // with the brackets of an IP literal
  std::string_view port;  // without the colon
};

HostAndPort splitAuthority(std::string_view authority) {
  const auto at = authority.rfind('@');
  if (at != std::string_view::npos) authority.remove_prefix(at + 1);
  const auto bracket = authority.rfind(']');
  const auto colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon == std::string_view::npos) return {authority, {}};
  return {authority.substr(0, colon), authority.substr(colon + 1)};
}

bool isHost(std::string_view host) {
  if (!host.starts_with('[')) return consistsOf(host, "");
  const bool closed = host.size() > 2 && host.ends_with(']');
  return closed && consistsOf(host.substr(1, host.size() - 2), ":") &&
         host.find('%') == std::string_view::npos;
}

bool isAuthority(std::string_view authority) {
  const auto at = authority.rfind('@');
  if (at != std::string_view::npos && !consistsOf(authority.substr(0, at), ":")) return false;
  const auto [host, port] = splitAuthority(authority);
  return isHost(host) && isPortOrEmpty(port);
}

// RFC 3986, 5.2.4.
std::string removingDotSegments(std::string_view input) {
  std::string output;
  const auto dropLastSegment = [&output] {
    const auto slash = output.rfind('/');
    output.erase(slash == std::string::npos ? 0 : slash);
  };
  while (!input.empty()) {
    if (input.starts_with("../")) {
      input.remove_prefix(3);
    } else if (input.starts_with("./") || input.starts_with("/./")) {
      input.remove_prefix(2);
    } else if (input == "/.") {
      input = "/";
    } else if (input.starts_with("/../")) {
      input.remove_prefix(3);
      dropLastSegment();
    } else if (input == "/..") {
      input = "/";
      dropLastSegment();
    } else if (input == "." || input == "..") {
      input = {};
    } else {
      const auto end = std::min(input.find('/', 1), input.size());
      output += input.substr(0, end);
      input.remove_prefix(end);
    }
  }
  return output;
}

// RFC 3986, 5.2.3.
std::string merging(const URL& base, std::string_view path) {
  if (base.authority() && base.path().empty()) return "/" + std::string(path);
  const auto slash = base.path().rfind('/');
  if (slash == std::string_view::npos) return std::string(path);
  return std::string(base.path().substr(0, slash + 1)) + std::string(path);
}

void appendComponent(std::string& text, char prefix, std::optional<std::string_view> component) {
  if (!component) return;
  text += prefix;
  text += *component;
}

}  // namespace

// The split of RFC 3986, appendix B.
void URL::split() {
  std::size_t position = 0;
  const auto end = text_.size();
  const auto find = [&](std::string_view set) {
    return std::min(text_.find_first_of(set, position), end);
  };
  const auto take = [&](Range& range, std::size_t upTo) {
    range = {position, upTo - position, true};
    position = upTo;
  };
  if (const auto colon = find(":/?#"); colon > 0 && colon < end && text_[colon] == ':') {
    take(scheme_, colon);
    ++position;
  }
  if (text_.compare(position, 2, "//") == 0) {
    position += 2;
    take(authority_, find("/?#"));
  }
  take(path_, find("?#"));
  if (position < end && text_[position] == '?') {
    ++position;
    take(query_, find("#"));
  }
  if (position < end && text_[position] == '#') {
    ++position;
    take(fragment_, end);
  }
}

std::optional<URL> URL::parse(std::string_view text) {
  URL url;
  url.text_ = text;
  url.split();
  const bool colonInFirstSegment =
      !url.isAbsolute() && !url.authority() &&
      url.path().substr(0, url.path().find('/')).find(':') != std::string_view::npos;
  const bool valid = (!url.scheme() || isScheme(*url.scheme())) &&
                     (!url.authority() || isAuthority(*url.authority())) && !colonInFirstSegment &&
                     consistsOf(url.path(), "/:@") &&
                     consistsOf(url.query().value_or(""), "/?:@") &&
                     consistsOf(url.fragment().value_or(""), "/?:@");
  if (!valid) return std::nullopt;
  return url;
}

URL URL::resolvedAgainst(const URL& base) const {
  if (isAbsolute()) return *this;
  auto targetAuthority = authority();
  auto targetQuery = query();
  std::string targetPath;
  if (targetAuthority) {
    targetPath = removingDotSegments(path());
  } else {
    targetAuthority = base.authority();
    if (path().empty()) {
      targetPath = base.path();
      if (!targetQuery) targetQuery = base.query();
    } else {
      targetPath = removingDotSegments(path().starts_with('/') ? std::string(path())
                                                               : merging(base, path()));
    }
  }
  URL result;
  if (base.scheme()) result.text_ = std::string(*base.scheme()) + ':';
  if (targetAuthority) (result.text_ += "//") += *targetAuthority;
  // Without an authority a path may not begin with "//", or it would be read as one.
  if (!targetAuthority && targetPath.starts_with("//")) result.text_ += "/.";
  result.text_ += targetPath;
  appendComponent(result.text_, '?', targetQuery);
  appendComponent(result.text_, '#', fragment());
  result.split();
  return result;
}

std::string_view URL::slice(const Range& range) const noexcept {
  return std::string_view(text_).substr(range.begin, range.length);
}

std::optional<std::string_view> URL::component(const Range& range) const noexcept {
  if (!range.present) return std::nullopt;
  return slice(range);
}

std::optional<std::string_view> URL::scheme() const noexcept {
  return component(scheme_);
}
std::optional<std::string_view> URL::authority() const noexcept {
  return component(authority_);
}
std::string_view URL::path() const noexcept {
  return slice(path_);
}
std::optional<std::string_view> URL::query() const noexcept {
  return component(query_);
}
std::optional<std::string_view> URL::fragment() const noexcept {
  return component(fragment_);
}

std::optional<std::string_view> URL::host() const noexcept {
  if (!authority()) return std::nullopt;
  auto host = splitAuthority(*authority()).host;
  if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
  return host;
}

std::optional<std::uint16_t> URL::port() const noexcept {
  if (!authority()) return std::nullopt;
  const auto text = splitAuthority(*authority()).port;
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return port;
}

}  // namespace kvl
