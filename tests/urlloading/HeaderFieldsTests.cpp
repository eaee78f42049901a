#include <local/platform/URLRequest.h>

#include <gtest/gtest.h>

namespace kvl {
namespace {

TEST(HeaderFieldsTest, FindsWithoutRegardToCase) {
  HeaderFields fields;
  fields.append("Content-Type", "a");
  fields.append("content-type", "b");
  EXPECT_EQ(fields.find("CONTENT-TYPE"), "a");
  EXPECT_FALSE(fields.find("Content"));
}

TEST(HeaderFieldsTest, SetReplacesEveryFieldOfTheName) {
  HeaderFields fields;
  fields.append("X", "1");
  fields.append("Y", "2");
  fields.append("x", "3");
  fields.set("x", "4");
  HeaderFields expected;
  expected.append("x", "4");
  expected.append("Y", "2");
  EXPECT_EQ(fields, expected);
  fields.remove("X");
  EXPECT_EQ(fields.size(), 1U);
}

TEST(HeaderFieldsTest, OnlyFieldsThatHTTPAllowsAreSendable) {
  struct Row {
    std::string_view name, value;
    bool sendable;
  };
  const Row rows[] = {{"X-Name", "value", true},
                      {"X-Name", "", true},
                      {"X", "tab\tand \xC3\xA9", true},
                      {"", "value", false},
                      {"X Name", "v", false},
                      {"X:", "v", false},
                      {"X\r\nY", "v", false},
                      {"X", "a\rb", false},
                      {"X", "a\nb", false},
                      {"X", std::string_view("a\0b", 3), false}};
  for (const Row& row : rows)
    EXPECT_EQ(isSendableHeaderField(row.name, row.value), row.sendable) << row.name;
}

TEST(URLRequestTest, KeepsATextThatIsNoURL) {
  URLRequest request("not a url");
  EXPECT_FALSE(request.url());
  EXPECT_EQ(request.urlText(), "not a url");
  request.setURL(*URL::parse("https://localhost/"));
  EXPECT_EQ(request.urlText(), "https://localhost/");
}

}  // namespace
}  // namespace kvl
