#include <local/qt/Fetched.h>

#include <gmock/gmock.h>

namespace {

using kvl::qt::Fetched;

kvl::URLResponseRef answered(int status) {
  return std::make_shared<kvl::URLResponse>(
      kvl::URLResponse{*kvl::URL::parse("https://localhost/x"), status, {}, 11});
}

TEST(FetchedTest, AStatusThatIsNoSuccessGoesBeforeTheErrorOfItsBody) {
  const Fetched fetched{std::nullopt, answered(404), kvl::Error("no document", 1)};
  EXPECT_FALSE(fetched.isGood());
  EXPECT_EQ(fetched.outcome(), "404 Not Found");
  EXPECT_EQ(fetched.text(), "404 Not Found from /x");
}

TEST(FetchedTest, StatusesBelowThreeHundredAreGood) {
  EXPECT_TRUE((Fetched{std::nullopt, answered(299), std::nullopt}.isGood()));
  EXPECT_FALSE((Fetched{std::nullopt, answered(300), std::nullopt}.isGood()));
  EXPECT_FALSE((Fetched{std::nullopt, answered(200), kvl::Error("broken", 1)}.isGood()));
  EXPECT_FALSE((Fetched{std::nullopt, nullptr, kvl::Error("broken", 1)}.isGood()));
}

TEST(FetchedTest, WithoutAnAnswerTheErrorSaysWhy) {
  const kvl::Error error("broken", 1);
  const Fetched fetched{std::nullopt, answered(200), error};
  EXPECT_EQ(fetched.outcome().toStdString(), error.localizedDescription());
  EXPECT_EQ(Fetched().outcome(), "");
}

}  // namespace
