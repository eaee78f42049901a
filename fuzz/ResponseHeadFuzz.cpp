// Any head of an answer, line by line, and the redirect in it: lines as they should be are read as
// the grammar reads them, and a redirect takes nothing along that it must not.
#include "fuzz/Choices.h"
#include "fuzz/Expression.h"
#include "platform/core/ASCII.h"
#include "platform/urlloading/RequestCheck.h"
#include "platform/urlloading/ResponseHead.h"

#include <algorithm>
#include <string>

namespace {

using kvl::HeaderFields;
using kvl::URL;
using kvl::URLRequest;
using kvl::fuzz::require;
using kvl::urlloading::isSecure;
using kvl::urlloading::redirectedRequest;
using kvl::urlloading::ResponseHead;

// Another reader, of lines that are well formed; none of others.
class OtherHead {
 public:
  void take(std::string_view line) {
    static const kvl::fuzz::Expression statusLine(
        R"(HTTP/([0-9])(?:\.([0-9]))? ([0-9]{3})(?: [^\r\n]*)?\r?\n)");
    static const kvl::fuzz::Expression field(
        R"(([-!#$%&'*+.^_`|~0-9A-Za-z]+):[ \t]*(|[^ \t\r\n][^\r\n]*?)[ \t]*\r?\n)");
    static const kvl::fuzz::Expression end(R"(\r?\n)");
    if (isOver || !isWell) return;
    if (isStart) {
      startHead(statusLine.groups(line));
    } else if (end.matches(line)) {
      isOver = status >= 200;
      isStart = !isOver;
    } else {
      const auto parts = field.groups(line);
      isWell = !parts.empty();
      if (isWell) fields.append(*parts[1], *parts[2]);
    }
  }

  bool isWell = true;
  bool isOver = false;
  int version = 0;
  int status = 0;
  HeaderFields fields;

 private:
  void startHead(const std::vector<std::optional<std::string_view>>& parts) {
    isWell = !parts.empty();
    if (!isWell) return;
    version =
        std::stoi(std::string(*parts[1])) * 10 + std::stoi(std::string(parts[2].value_or("0")));
    status = std::stoi(std::string(*parts[3]));
    fields.clear();
    isStart = false;
  }

  bool isStart = true;
};

void checkFields(const HeaderFields& fields) {
  for (const auto& [name, value] : fields) {
    require(kvl::ascii::trimmed(name) == name, "a name has no blanks around it");
    require(kvl::ascii::trimmed(value) == value, "a value has no blanks around it");
    require(name.find(':') == std::string::npos, "a name ends at a colon");
  }
}

ResponseHead readHead(std::string_view text) {
  ResponseHead head;
  OtherHead other;
  bool complete = false;
  while (!text.empty()) {
    const auto line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    text.remove_prefix(line.size());
    const bool ends = head.take(line);
    require(!ends || !complete, "a head ends once");
    complete = complete || ends;
    other.take(line);
  }
  require(head.isComplete() == complete, "a head is complete once it has ended");
  require(!complete || head.status() >= 200, "only a final head ends");
  checkFields(head.fields());
  if (!other.isWell) return head;
  require(complete == other.isOver, "both see the same end");
  require(head.status() == other.status && head.version() == other.version, "both read one status");
  require(head.fields() == other.fields, "both read the same fields");
  return head;
}

URLRequest requestFor(const URL& url, kvl::fuzz::Choices& choices) {
  constexpr std::array<const char*, 6> kMethods{"GET", "HEAD", "POST", "PUT", "DELETE", "patch"};
  URLRequest request(url);
  request.setMethod(choices.of(kMethods));
  for (const char* name : {"Authorization", "COOKIE", "host", "Content-Type", "X-Own"})
    request.headers().append(name, "secret");
  if (choices.yes()) request.setBody(kvl::Data::fromText("body"));
  return request;
}

int portOf(const URL& url) {
  return url.port().value_or(isSecure(url) ? 443 : 80);
}

// Ports beyond the largest one stand for none here; libcurl refuses them.
bool leadsElsewhere(const URL& from, const URL& to) {
  return isSecure(from) != isSecure(to) || portOf(from) != portOf(to) ||
         !kvl::ascii::equalIgnoringCase(from.host().value_or(""), to.host().value_or(""));
}

void checkRedirect(const URLRequest& request, const ResponseHead& head) {
  const auto next = redirectedRequest(request, head.status(), head.fields());
  if (!next) return;
  const int status = head.status();
  const auto& fields = next->headers();
  require((status >= 301 && status <= 303) || status == 307 || status == 308, "it is a redirect");
  require(next->url().has_value(), "it leads to a URL");
  require(URL::parse(next->urlText()).has_value(), "what it leads to is a URL");
  require(kvl::urlloading::isLoadable(*next->url()), "it leads to what can be loaded");
  require(kvl::urlloading::namesHost(*next->url()), "it leads to a host");
  require(isSecure(*next->url()) || !isSecure(*request.url()), "it never leads to clear text");
  if (leadsElsewhere(*request.url(), *next->url())) {
    for (const char* name : {"Authorization", "Cookie", "Host"})
      require(!fields.find(name), "what is for one server stays there");
  }
  require(fields.find("X-Own") == "secret", "other fields are taken along");
  const bool keeps = next->method() == request.method();
  require(keeps || next->method() == "GET", "the method stays or becomes GET");
  require(keeps || (status <= 303 && !next->body() && !fields.find("Content-Type")),
          "a body goes with its method");
  require(!keeps || next->body() == request.body(), "a method keeps its body");
  require(status != 307 || keeps, "a temporary redirect changes nothing");
  require(status != 308 || keeps, "a permanent redirect changes nothing");
}

// How the request is made, the URL that it is for in one line, and the head.
void checkResponseHead(kvl::fuzz::Input input) {
  kvl::fuzz::Choices choices(input);
  const auto how = choices.text(2);
  auto text = choices.rest();
  const auto url = URL::parse(text.substr(0, text.find('\n')));
  text.remove_prefix(std::min(text.size(), url ? url->absoluteString().size() + 1 : 0));
  const auto head = readHead(text);
  if (!url || !kvl::urlloading::isLoadable(*url)) return;
  kvl::fuzz::Choices shape(how);
  checkRedirect(requestFor(*url, shape), head);
}

const kvl::fuzz::Target responseHead("responsehead", checkResponseHead);

}  // namespace
