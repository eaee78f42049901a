// What is read of a response's head, and which request follows a redirect.
#include "platform/urlloading/ResponseHead.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kvl::urlloading {
namespace {

ResponseHead headOfLines(std::initializer_list<std::string_view> lines) {
  ResponseHead head;
  for (const std::string_view line : lines) static_cast<void>(head.take(line));
  return head;
}

TEST(ResponseHeadLineTest, IsCompleteWithTheEmptyLine) {
  ResponseHead head;
  EXPECT_FALSE(head.take("HTTP/1.1 200 OK\r\n"));
  EXPECT_FALSE(head.take("Name:  a value \t\r\n"));
  EXPECT_FALSE(head.isComplete());
  EXPECT_TRUE(head.take("\r\n"));
  EXPECT_TRUE(head.isComplete());
  EXPECT_EQ(head.status(), 200);
  EXPECT_EQ(head.version(), 11);
  EXPECT_EQ(head.fields().find("name"), "a value");
}

TEST(ResponseHeadLineTest, WhatComesAfterItIsIgnored) {
  auto head = headOfLines({"HTTP/1.1 200 OK\r\n", "A: 1\r\n", "\r\n"});
  EXPECT_FALSE(head.take("B: 2\r\n"));
  EXPECT_FALSE(head.take("\r\n"));
  EXPECT_FALSE(head.take("HTTP/1.1 404 Not Found\r\n"));
  EXPECT_EQ(head.fields().find("B"), std::nullopt);
  EXPECT_EQ(head.status(), 200);
}

TEST(ResponseHeadLineTest, OnlyTheFinalHeadCounts) {
  const auto early = headOfLines({"HTTP/1.1 199 Early\r\n", "A: 1\r\n", "\r\n"});
  EXPECT_FALSE(early.isComplete());
  const auto head = headOfLines({"HTTP/1.1 103 Early Hints\r\n", "A: 1\r\n", "\r\n",
                                 "HTTP/1.1 200 OK\r\n", "B: 2\r\n", "\r\n"});
  EXPECT_TRUE(head.isComplete());
  EXPECT_EQ(head.fields().find("A"), std::nullopt);
  EXPECT_EQ(head.fields().find("B"), "2");
}

TEST(ResponseHeadLineTest, ReadsEveryVersionAndStatus) {
  struct Row {
    std::string_view line;
    int version, status;
  };
  for (const auto& [line, version, status] :
       {Row{"HTTP/1.0 404 Not Found\r\n", 10, 404}, Row{"HTTP/2 204\r\n", 20, 204},
        Row{"HTTP/2 200 \r\n", 20, 200}, Row{"HTTP/1.1  302 F\r\n", 11, 302},
        Row{"HTTP/1.1 words\r\n", 11, 0}, Row{"HTTP/1.1\r\n", 11, 0}}) {
    const auto head = headOfLines({line});
    EXPECT_EQ(head.version(), version) << line;
    EXPECT_EQ(head.status(), status) << line;
  }
}

TEST(ResponseHeadLineTest, LineWithoutAColonIsNoField) {
  const auto head = headOfLines({"HTTP/1.1 200 OK\r\n", "no field\r\n", "Empty:\r\n", "A:b:c\r\n"});
  EXPECT_EQ(head.fields().size(), 2U);
  EXPECT_EQ(head.fields().find("Empty"), "");
  EXPECT_EQ(head.fields().find("A"), "b:c");
}

class RedirectedRequestTest : public ::testing::Test {
 protected:
  static std::optional<URLRequest> redirected(const std::string& source, const std::string& target,
                                              int status = 302) {
    HeaderFields fields;
    fields.set("Location", target);
    return redirectedRequest(requestFor(source), status, fields);
  }
  static URLRequest requestFor(const std::string& source) {
    URLRequest request(source);
    for (const char* name : {"Authorization", "Cookie", "Host", "Other", "Content-Type"}) {
      request.headers().set(name, "set");
    }
    return request;
  }
  static std::string urlAfter(const std::string& source, const std::string& target) {
    const auto request = redirected(source, target);
    return request ? request->url()->absoluteString() : "(none)";
  }
};

TEST_F(RedirectedRequestTest, OnlyTheStatusesOfRedirectsAreFollowed) {
  for (const int status : {301, 302, 303, 307, 308}) {
    EXPECT_TRUE(redirected("https://a/", "/b", status)) << status;
  }
  for (const int status : {200, 201, 300, 304, 305, 306, 309, 400}) {
    EXPECT_FALSE(redirected("https://a/", "/b", status)) << status;
  }
}

TEST_F(RedirectedRequestTest, NeedsATargetThatMayBeLoaded) {
  EXPECT_FALSE(redirectedRequest(URLRequest("https://a/"), 302, {}));
  for (const char* target : {"http://a/", "file:///b", "ftp://a/", "not a url"}) {
    EXPECT_FALSE(redirected("https://a/", target)) << target;
  }
  EXPECT_TRUE(redirected("http://a/", "http://b/"));
  EXPECT_TRUE(redirected("http://a/", "https://a/"));
}

TEST_F(RedirectedRequestTest, FragmentIsTheTargetsOwnOrTheSources) {
  EXPECT_EQ(urlAfter("https://a/x#one", "/y"), "https://a/y#one");
  EXPECT_EQ(urlAfter("https://a/x#one", "/y#two"), "https://a/y#two");
  EXPECT_EQ(urlAfter("https://a/x", "/y#two"), "https://a/y#two");
  EXPECT_EQ(urlAfter("https://a/x", "/y"), "https://a/y");
}

TEST_F(RedirectedRequestTest, WhatAuthenticatesTheCallerStaysWithItsOrigin) {
  struct Row {
    const char* source;
    const char* target;
    bool isSame;
  };
  for (const auto& [source, target, isSame] :
       {Row{"https://a/x", "/y", true}, Row{"https://a/x", "https://A/y", true},
        Row{"https://a/x", "https://a:443/y", true}, Row{"https://a:443/x", "https://a/y", true},
        Row{"https://a:4443/x", "https://a:4443/y", true},
        Row{"http://a:8080/x", "http://a:8080/y", true}, Row{"https://a/x", "https://b/y", false},
        Row{"https://a/x", "https://a:444/y", false}, Row{"https://a:444/x", "https://a/y", false},
        Row{"https://a:4443/x", "https://a:4444/y", false}, Row{"http://a/x", "https://a/y", false},
        Row{"http://a/x", "http://a:8080/y", false},
        Row{"http://a:443/x", "https://a:443/y", false}}) {
    SCOPED_TRACE(source + (" to " + std::string(target)));
    const auto request = redirected(source, target);
    ASSERT_TRUE(request);
    for (const char* name : {"Authorization", "Cookie", "Host"}) {
      EXPECT_EQ(request->headers().find(name).has_value(), isSame) << name;
    }
    EXPECT_TRUE(request->headers().find("Other"));
  }
}

TEST_F(RedirectedRequestTest, BodyGoesWithAMethodThatIsGivenUp) {
  struct Row {
    int status;
    const char* method;
    const char* next;
  };
  for (const auto& [status, method, next] :
       {Row{301, "POST", "GET"}, Row{302, "POST", "GET"}, Row{303, "POST", "GET"},
        Row{303, "DELETE", "GET"}, Row{303, "HEAD", "HEAD"}, Row{303, "GET", "GET"},
        Row{301, "PUT", "PUT"}, Row{302, "DELETE", "DELETE"}, Row{301, "HEAD", "HEAD"},
        Row{307, "POST", "POST"}, Row{308, "POST", "POST"}}) {
    SCOPED_TRACE(std::to_string(status) + " " + method);
    auto request = requestFor("https://a/x");
    request.setMethod(method);
    request.setBody(Data::fromText("body"));
    HeaderFields fields;
    fields.set("Location", "/y");
    const auto after = redirectedRequest(request, status, fields);
    ASSERT_TRUE(after);
    EXPECT_EQ(after->method(), next);
    const bool isKept = std::string_view(method) == next;
    EXPECT_EQ(after->body().has_value(), isKept);
    EXPECT_EQ(after->headers().find("Content-Type").has_value(), isKept);
    EXPECT_TRUE(after->headers().find("Authorization"));
  }
}

}  // namespace
}  // namespace kvl::urlloading
