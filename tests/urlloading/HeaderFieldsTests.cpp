#include <local/platform/URLRequest.h>

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

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

TEST(StatusTextTest, EveryRegisteredStatusHasItsText) {
  const std::pair<int, std::string_view> rows[] = {
      {100, "Continue"},
      {101, "Switching Protocols"},
      {102, "Processing"},
      {103, "Early Hints"},
      {104, "Upload Resumption Supported"},
      {200, "OK"},
      {201, "Created"},
      {202, "Accepted"},
      {203, "Non-Authoritative Information"},
      {204, "No Content"},
      {205, "Reset Content"},
      {206, "Partial Content"},
      {207, "Multi-Status"},
      {208, "Already Reported"},
      {226, "IM Used"},
      {300, "Multiple Choices"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {303, "See Other"},
      {304, "Not Modified"},
      {305, "Use Proxy"},
      {307, "Temporary Redirect"},
      {308, "Permanent Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {402, "Payment Required"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {406, "Not Acceptable"},
      {407, "Proxy Authentication Required"},
      {408, "Request Timeout"},
      {409, "Conflict"},
      {410, "Gone"},
      {411, "Length Required"},
      {412, "Precondition Failed"},
      {413, "Content Too Large"},
      {414, "URI Too Long"},
      {415, "Unsupported Media Type"},
      {416, "Range Not Satisfiable"},
      {417, "Expectation Failed"},
      {421, "Misdirected Request"},
      {422, "Unprocessable Content"},
      {423, "Locked"},
      {424, "Failed Dependency"},
      {425, "Too Early"},
      {426, "Upgrade Required"},
      {428, "Precondition Required"},
      {429, "Too Many Requests"},
      {431, "Request Header Fields Too Large"},
      {451, "Unavailable For Legal Reasons"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
      {505, "HTTP Version Not Supported"},
      {506, "Variant Also Negotiates"},
      {507, "Insufficient Storage"},
      {508, "Loop Detected"},
      {510, "Not Extended"},
      {511, "Network Authentication Required"},
  };
  for (const auto& [code, text] : rows) EXPECT_EQ(localizedStringForStatusCode(code), text) << code;
}

TEST(StatusTextTest, OthersHaveTheTextOfTheirClass) {
  const std::pair<int, std::string_view> rows[] = {
      {-1, "Unknown Status"}, {0, "Unknown Status"},  {99, "Unknown Status"},
      {105, "Informational"}, {199, "Informational"}, {209, "Success"},
      {299, "Success"},       {306, "Redirection"},   {399, "Redirection"},
      {418, "Client Error"},  {499, "Client Error"},  {509, "Server Error"},
      {599, "Server Error"},  {600, "Unknown Status"}};
  for (const auto& [code, text] : rows) EXPECT_EQ(localizedStringForStatusCode(code), text) << code;
}

}  // namespace
}  // namespace kvl
