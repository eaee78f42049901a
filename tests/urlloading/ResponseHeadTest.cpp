#include "platform/urlloading/ResponseHead.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace kvl::urlloading {
namespace {

ResponseHead headOf(std::initializer_list<std::string_view> lines) {
  ResponseHead head;
  for (const auto line : lines) static_cast<void>(head.take(std::string(line) + "\r\n"));
  return head;
}

TEST(ResponseHeadTest, AFieldThatLooksLikeAStatusLineIsNone) {
  const auto head = headOf({"HTTP/1.1 404 Not Found", "A: b", "HTTP/2: 200", "C: d", ""});
  EXPECT_TRUE(head.isComplete());
  EXPECT_EQ(head.status(), 404);
  EXPECT_EQ(head.version(), 11);
  EXPECT_EQ(head.fields().find("A"), "b");
  EXPECT_EQ(head.fields().find("C"), "d");
}

TEST(ResponseHeadTest, AnInterimHeadLeavesNothingBehind) {
  const auto head = headOf({"HTTP/1.1 103 Early Hints", "A: b", "", "HTTP/1.0 200 OK", "C: d", ""});
  EXPECT_TRUE(head.isComplete());
  EXPECT_EQ(head.status(), 200);
  EXPECT_EQ(head.version(), 10);
  EXPECT_EQ(head.fields().size(), 1U);
  EXPECT_EQ(head.fields().find("C"), "d");
}

TEST(ResponseHeadTest, LargeNumbersDoNoHarm) {
  const auto head = headOf({"HTTP/999999999.999999999 99999999999 OK", "A: b", ""});
  EXPECT_TRUE(head.isComplete());
  EXPECT_EQ(head.fields().find("A"), "b");
}

TEST(ResponseHeadTest, ARedirectWithoutAHostIsNotFollowed) {
  const URLRequest request("https://localhost/a");
  for (const auto* location :
       {"https:/elsewhere.test/", "https:///elsewhere.test/", "https://:443/"}) {
    HeaderFields fields;
    fields.append("Location", location);
    EXPECT_FALSE(redirectedRequest(request, 307, fields)) << location;
  }
}

}  // namespace
}  // namespace kvl::urlloading
