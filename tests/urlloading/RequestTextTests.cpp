// What a request looks like to its server.
#include "platform/core/ASCII.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kvl::testing {
namespace {

class RequestTextTest : public URLSessionTest {
 protected:
  // The lines of the head that the server got; the body is behind the empty one.
  std::vector<std::string> sent(URLRequest request) {
    request.setURL(*URL::parse(echo.url("127.0.0.1", "/path")));
    return linesOf(load(*session, request).text());
  }
  // The same of libcurl's own request, which offers what it can decode.
  std::vector<std::string> sentByLibcurl() {
    std::string text;
    const auto take = +[](char* bytes, std::size_t, std::size_t size, void* user) {
      static_cast<std::string*>(user)->append(bytes, size);
      return size;
    };
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, echo.url("127.0.0.1", "/path").c_str());
    curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &text);
    EXPECT_EQ(curl_easy_perform(easy), CURLE_OK);
    curl_easy_cleanup(easy);
    return linesOf(text);
  }
  static std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start <= text.size();) {
      const auto end = std::min(text.find("\r\n", start), text.size());
      lines.push_back(text.substr(start, end - start));
      start = end + 2;
    }
    return lines;
  }
  // The values of a field, in order.
  static std::vector<std::string> values(const std::vector<std::string>& lines,
                                         std::string_view name) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
      const auto colon = line.find(':');
      if (colon == std::string::npos || !ascii::equalIgnoringCase(line.substr(0, colon), name))
        continue;
      found.emplace_back(ascii::trimmed(std::string_view(line).substr(colon + 1)));
    }
    return found;
  }
  static URLRequest requestWith(std::string_view method, std::string_view body) {
    URLRequest request("https://a/");
    request.setMethod(std::string(method));
    if (!body.empty()) request.setBody(Data::fromText(body));
    return request;
  }

  // Connections stay: on one that its server is about to close a request may be lost.
  const TestTLSServer echo{{}, [](TestPeer& peer) {
                             for (std::string request; !(request = peer.readRequest()).empty();) {
                               if (!peer.write(httpResponse(request))) return;
                             }
                           }};
};

using Values = std::vector<std::string>;

TEST_F(RequestTextTest, FieldsGoOutAsTheyWereSetButForThoseOfTheMessageItself) {
  auto request = requestWith("POST", "xyz");
  for (const auto& [name, value] : {std::pair{"A", "1"}, {"a", "2"}, {"Empty", ""}}) {
    request.headers().append(name, value);
  }
  request.headers().set("content-length", "99");
  request.headers().set("Transfer-encoding", "chunked");
  request.headers().set("cookie", "a=b");
  const auto lines = sent(request);
  EXPECT_EQ(lines.front(), "POST /path HTTP/1.1");
  EXPECT_EQ(lines.back(), "xyz");
  EXPECT_EQ(values(lines, "A"), (Values{"1", "2"}));
  EXPECT_EQ(values(lines, "Empty"), Values{""});
  EXPECT_EQ(values(lines, "Content-Length"), Values{"3"});
  EXPECT_EQ(values(lines, "Transfer-Encoding"), Values{});
  EXPECT_EQ(values(lines, "Cookie"), Values{"a=b"});
}

TEST_F(RequestTextTest, NothingIsAddedThatTheHostDidNotSay) {
  const auto lines = sent(requestWith("POST", std::string(2000000, 'x')));
  EXPECT_EQ(values(lines, "Expect"), Values{});
  EXPECT_EQ(values(lines, "Content-Type"), Values{});
  EXPECT_EQ(values(lines, "User-Agent"), Values{});
  EXPECT_EQ(values(lines, "Host"), Values{"127.0.0.1:" + std::to_string(echo.port())});
  auto request = requestWith("POST", "xyz");
  request.headers().set("Content-Type", "text/plain");
  EXPECT_EQ(values(sent(request), "Content-Type"), Values{"text/plain"});
}

TEST_F(RequestTextTest, AllEncodingsAreOfferedThatLibcurlDecodesUnlessTheHostNamesSome) {
  const auto offered = values(sentByLibcurl(), "Accept-Encoding");
  ASSERT_EQ(offered.size(), 1U);
  EXPECT_EQ(values(sent(requestWith("GET", "")), "Accept-Encoding"), offered);
  auto request = requestWith("GET", "");
  request.headers().set("accept-encoding", "gzip");
  EXPECT_EQ(values(sent(request), "Accept-Encoding"), Values{"gzip"});
}

TEST_F(RequestTextTest, MethodsThatSendABodySayHowLongItIs) {
  for (const std::string method : {"POST", "PUT", "PATCH"}) {
    EXPECT_EQ(values(sent(requestWith(method, "")), "Content-Length"), Values{"0"}) << method;
  }
  for (const std::string method : {"GET", "DELETE", "OPTIONS"}) {
    const auto bare = sent(requestWith(method, ""));
    EXPECT_EQ(bare.front(), method + " /path HTTP/1.1");
    EXPECT_EQ(values(bare, "Content-Length"), Values{}) << method;
  }
  for (const std::string method : {"GET", "DELETE", "OPTIONS", "POST", "PUT", "PATCH"}) {
    const auto lines = sent(requestWith(method, "xyz"));
    EXPECT_EQ(lines.front(), method + " /path HTTP/1.1");
    EXPECT_EQ(values(lines, "Content-Length"), Values{"3"}) << method;
    EXPECT_EQ(lines.back(), "xyz") << method;
  }
}

}  // namespace
}  // namespace kvl::testing
