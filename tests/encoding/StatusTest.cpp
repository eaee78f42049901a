#include <local/KVLExtensions.h>

#include <gtest/gtest.h>

#include <limits>

namespace {

kvl::URLResponse responseOf(std::optional<int> status) {
  return {*kvl::URL::parse("https://h/a"), status, {}, 11};
}

TEST(StatusTest, IsTheHTTPStatusOrMinusOne) {
  EXPECT_EQ(KVLExtensions::statusCode(responseOf(200)), 200);
  EXPECT_EQ(KVLExtensions::statusCode(responseOf(599)), 599);
  EXPECT_EQ(KVLExtensions::statusCode(responseOf(std::nullopt)), -1);
}

TEST(StatusTest, AuthenticationIsRequiredFor401And403Only) {
  for (const std::optional<int> status : {401, 403}) {
    EXPECT_TRUE(KVLExtensions::requiresAuthentication(responseOf(status))) << *status;
  }
  for (const int status : {200, 400, 402, 404, 407}) {
    EXPECT_FALSE(KVLExtensions::requiresAuthentication(responseOf(status))) << status;
  }
  EXPECT_FALSE(KVLExtensions::requiresAuthentication(responseOf(std::nullopt)));
}

TEST(StatusTextTest, NamesTheRegisteredCodes) {
  EXPECT_EQ(kvl::localizedStringForStatusCode(100), "Continue");
  EXPECT_EQ(kvl::localizedStringForStatusCode(200), "OK");
  EXPECT_EQ(kvl::localizedStringForStatusCode(404), "Not Found");
  EXPECT_EQ(kvl::localizedStringForStatusCode(422), "Unprocessable Content");
  EXPECT_EQ(kvl::localizedStringForStatusCode(511), "Network Authentication Required");
}

TEST(StatusTextTest, NamesTheClassOfOtherCodes) {
  EXPECT_EQ(kvl::localizedStringForStatusCode(199), "Informational");
  EXPECT_EQ(kvl::localizedStringForStatusCode(299), "Success");
  EXPECT_EQ(kvl::localizedStringForStatusCode(306), "Redirection");
  EXPECT_EQ(kvl::localizedStringForStatusCode(418), "Client Error");
  EXPECT_EQ(kvl::localizedStringForStatusCode(599), "Server Error");
}

TEST(StatusTextTest, HasATextForWhatIsNoStatus) {
  for (const std::int64_t code :
       {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, std::int64_t{99},
        std::int64_t{600}, std::numeric_limits<std::int64_t>::max()}) {
    EXPECT_EQ(kvl::localizedStringForStatusCode(code), "Unknown Status") << code;
  }
}

}  // namespace
