#include "tests/session/SessionFixture.h"

#include <local/KVLEncodingForm.h>
#include <local/platform/Workspace.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kvltest;
using kvl::Array;
using kvl::Dictionary;
using KVLEncoding::formWithAdditionalInputs;
using KVLEncoding::RelativePath;
using KVLEncoding::submitForm;

Dictionary named(std::string_view name) {
  return {{"name", name}};
}

TEST(FormMergeTest, AppendsTheAdditionalInputsInOrder) {
  const Dictionary form{{"inputs", Array{named("a"), named("b")}}, {"action", "x"}};
  const auto merged = formWithAdditionalInputs(form, Array{named("c"), named("d")});
  EXPECT_EQ(merged, (Dictionary{{"inputs", Array{named("a"), named("b"), named("c"), named("d")}},
                                {"action", "x"}}));
}

TEST(FormMergeTest, LeavesTheGivenFormAsItIs) {
  const Dictionary form{{"inputs", Array{named("a")}}};
  auto merged = formWithAdditionalInputs(form, Array{named("b")});
  merged->set("action", "x");
  EXPECT_EQ(form, (Dictionary{{"inputs", Array{named("a")}}}));
}

TEST(FormMergeTest, CopyAlwaysHasInputs) {
  EXPECT_EQ(formWithAdditionalInputs(Dictionary{}, std::nullopt),
            (Dictionary{{"inputs", Array{}}}));
  EXPECT_EQ(formWithAdditionalInputs(Dictionary{}, Array{}), (Dictionary{{"inputs", Array{}}}));
  EXPECT_EQ(formWithAdditionalInputs(Dictionary{{"inputs", nullptr}}, std::nullopt),
            (Dictionary{{"inputs", Array{}}}));
}

TEST(FormMergeTest, InputsOfAnotherTypeAreLoggedAndReplaced) {
  const LogCapture log;
  EXPECT_EQ(formWithAdditionalInputs(Dictionary{{"inputs", "a"}}, Array{named("b")}),
            (Dictionary{{"inputs", Array{named("b")}}}));
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"expect inputs as array in dictionary {inputs = a}"});
}

TEST(FormMergeTest, OfNoFormIsNone) {
  EXPECT_EQ(formWithAdditionalInputs(std::nullopt, Array{named("a")}), std::nullopt);
}

class FormTest : public SessionFixture {
 protected:
  FormTest() {
    create();
    establish();
    kvl::setURLOpener([this](std::string_view url) {
      opened.emplace_back(url);
      return opens;
    });
    kvl::setErrorPresenter([this](const kvl::Error& error) { presented.push_back(error); });
    linesBefore = log.lines().size();
  }
  ~FormTest() override {
    kvl::setURLOpener(nullptr);
    kvl::setErrorPresenter(nullptr);
  }

  void submit(const Dictionary& form) { submitForm(form, RelativePath("fallback"), *session); }

  // The request that the submission of a form sends, seen at the HTTPS session object.
  kvl::URLRequest sent(const Dictionary& form,
                       const std::optional<Array>& additional = std::nullopt) {
    submitForm(form, additional, RelativePath("fallback"), *session);
    if (loader->tasks().empty()) {
      ADD_FAILURE() << "nothing was sent";
      return kvl::URLRequest("");
    }
    return loader->tasks().back()->originalRequest();
  }

  [[nodiscard]] kvl::DataTaskHandler handler() {
    return [this](std::optional<kvl::Data> data, kvl::URLResponseRef response,
                  std::optional<kvl::Error> error) {
      ++calls;
      received = {std::move(data), std::move(response), std::move(error)};
    };
  }

  void complete(const kvl::URLResponseRef& response, const std::optional<kvl::Error>& error) {
    loader->tasks().back()->complete(kvl::Data::fromText("body"), response, error);
  }

  // What has been logged since the session was established.
  [[nodiscard]] std::vector<std::string> lines() const {
    auto all = log.lines();
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(linesBefore));
    return all;
  }

  struct Outcome {
    std::optional<kvl::Data> data;
    kvl::URLResponseRef response;
    std::optional<kvl::Error> error;
  };

  std::size_t linesBefore = 0;
  bool opens = true;
  std::vector<std::string> opened;
  std::vector<kvl::Error> presented;
  int calls = 0;
  Outcome received;
};

kvl::URLResponseRef answer(std::optional<int> status) {
  return std::make_shared<const kvl::URLResponse>(
      kvl::URLResponse{*kvl::URL::parse("https://h/answer?a=b"), status, {}, 11});
}

const Dictionary kNote{{"name", "note"}, {"value", "hi"}};

TEST_F(FormTest, SendsItsInputsAsABodyToItsAction) {
  const auto request = sent({{"action", "forms/a"}, {"inputs", Array{kNote}}});
  EXPECT_EQ(request.urlText(), "https://127.0.0.1:4321/base/forms/a");
  EXPECT_EQ(request.method(), "POST");
  EXPECT_EQ(request.headers().find("Accept"), "application/json");
  EXPECT_TRUE(
      request.headers().find("Content-Type")->starts_with("multipart/form-data; boundary="));
  EXPECT_EQ(request.headers().find("Content-Length"), std::to_string(request.body()->size()));
  EXPECT_THAT(std::string(request.body()->text()),
              testing::HasSubstr("\nContent-Disposition: form-data; name=\"note\"\n"
                                 "Content-Type: text/plain;charset=UTF-8\n\nhi\n--"));
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, SendsAdditionalInputsAfterItsOwn) {
  const auto request =
      sent({{"inputs", Array{named("first")}}}, Array{named("second"), named("third")});
  const auto body = request.body()->text();
  EXPECT_LT(body.find("name=\"first\""), body.find("name=\"second\""));
  EXPECT_LT(body.find("name=\"second\""), body.find("name=\"third\""));
  EXPECT_NE(body.find("name=\"third\""), std::string_view::npos);
}

TEST_F(FormTest, WithoutAnActionGoesToTheRelativePath) {
  EXPECT_EQ(sent({}).urlText(), "https://127.0.0.1:4321/base/fallback");
  EXPECT_EQ(sent({{"action", nullptr}}).urlText(), "https://127.0.0.1:4321/base/fallback");
}

TEST_F(FormTest, EmptyActionIsTheServiceItself) {
  EXPECT_EQ(sent({{"action", ""}}).urlText(), "https://127.0.0.1:4321/base/");
}

TEST_F(FormTest, ActionOfAnotherTypeIsLoggedAndReplacedByTheRelativePath) {
  EXPECT_EQ(sent({{"action", 7}}).urlText(), "https://127.0.0.1:4321/base/fallback");
  EXPECT_EQ(lines(),
            std::vector<std::string>{"expect action as string in dictionary {action = 7}"});
}

TEST_F(FormTest, WithoutInputsIsAGetWithoutABody) {
  const auto request = sent({{"action", "a"}});
  EXPECT_EQ(request.method(), "GET");
  EXPECT_EQ(request.body(), std::nullopt);
  EXPECT_EQ(request.headers().find("Content-Type"), std::nullopt);
  EXPECT_EQ(request.headers().find("Content-Length"), std::nullopt);
  EXPECT_EQ(request.headers().find("Accept"), "application/json");
}

TEST_F(FormTest, MethodIsSentInUpperCase) {
  EXPECT_EQ(sent({{"method", "put"}, {"inputs", Array{kNote}}}).method(), "PUT");
  EXPECT_EQ(sent({{"method", "dElEtE"}}).method(), "DELETE");
}

TEST_F(FormTest, EmptyMethodIsIgnored) {
  EXPECT_EQ(sent({{"method", ""}, {"inputs", Array{kNote}}}).method(), "POST");
  EXPECT_EQ(sent({{"method", ""}}).method(), "GET");
  EXPECT_EQ(sent({{"method", nullptr}}).method(), "GET");
}

TEST_F(FormTest, MethodOfAnotherTypeIsLoggedAndIgnored) {
  EXPECT_EQ(sent({{"method", 1}}).method(), "GET");
  // With the form as it was given: the merged one would show inputs.
  EXPECT_EQ(lines(),
            std::vector<std::string>{"expect method as string in dictionary {method = 1}"});
}

TEST_F(FormTest, ActionThatIsNoURLStaysSoThatTheRequestFails) {
  const auto request = sent({{"action", "a b"}});
  EXPECT_EQ(request.url(), std::nullopt);
  EXPECT_EQ(request.urlText(), "a b");
}

TEST_F(FormTest, NoFormDoesNothing) {
  submitForm(std::nullopt, Array{kNote}, RelativePath("https://example.org/"), *session, handler());
  submitForm(std::nullopt, RelativePath("a"), *session);
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_TRUE(opened.empty());
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, HandsTheRawBodyAndTheResponseToTheHandler) {
  submitForm(Dictionary{}, std::nullopt, RelativePath("a"), *session, handler());
  const auto response = answer(404);
  complete(response, std::nullopt);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(received.data->text(), "body");
  EXPECT_EQ(received.response, response);
  EXPECT_EQ(received.error, std::nullopt);
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, HandsAnErrorToTheHandlerUnchangedAndPresentsNothing) {
  submitForm(Dictionary{}, std::nullopt, RelativePath("a"), *session, handler());
  const kvl::Error error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut);
  complete(nullptr, error);
  EXPECT_EQ(received.error, error);
  EXPECT_TRUE(presented.empty());
  EXPECT_EQ(log.count("action error"), 0U);
}

TEST_F(FormTest, WhileNotEstablishedCallsTheHandlerAtOnce) {
  session->setSession(nullptr);
  submitForm(Dictionary{}, std::nullopt, RelativePath("a"), *session, handler());
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(received.error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorUnknown));
}

TEST_F(FormTest, InputsThatCannotBeEncodedGoToTheHandlerAndNowhereElse) {
  submitForm(Dictionary{{"method", 1}}, Array{Dictionary{}}, RelativePath("a"), *session,
             handler());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(received.data, std::nullopt);
  EXPECT_EQ(received.response, nullptr);
  EXPECT_TRUE(received.error->is("korvale.vandrel.local.extensions", 404));
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, InputsThatCannotBeEncodedAreLoggedWithoutAHandler) {
  submit({{"inputs", Array{named("a\"b")}}});
  EXPECT_TRUE(loader->tasks().empty());
  const kvl::Error error("korvale.vandrel.local.extensions", 400,
                         {{"malformed name", "contains double quote"}, {"name", "a\"b"}});
  EXPECT_EQ(lines(), std::vector<std::string>{"error encoding inputs: " + error.description()});
  EXPECT_TRUE(presented.empty());
}

TEST_F(FormTest, ExternalActionIsOpenedInTheBrowserAndNeverSent) {
  submitForm(Dictionary{{"action", "https://example.org/a"}, {"method", "put"}}, Array{kNote},
             RelativePath("a"), *session, handler());
  EXPECT_EQ(opened, std::vector<std::string>{"https://example.org/a"});
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, ExternalActionIsNeverSentThoughTheFormHasInputsAndNobodyListens) {
  submitForm(Dictionary{{"action", "https://example.org/a"}, {"inputs", Array{kNote}}},
             RelativePath("a"), *session);
  EXPECT_EQ(opened, std::vector<std::string>{"https://example.org/a"});
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, ExternalRelativePathIsOpenedInTheBrowser) {
  submitForm(Dictionary{}, RelativePath("https://example.org/b"), *session);
  EXPECT_EQ(opened, std::vector<std::string>{"https://example.org/b"});
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(FormTest, OnlyTheExactSchemeIsExternal) {
  EXPECT_EQ(sent({{"action", "HTTPS://example.org/"}}).urlText(), "HTTPS://example.org/");
  EXPECT_EQ(sent({{"action", "http://example.org/"}}).urlText(), "http://example.org/");
  EXPECT_EQ(sent({{"action", "https:/a"}}).urlText(), "https:/a");
  EXPECT_EQ(sent({{"action", " https://example.org/"}}).urlText(), " https://example.org/");
  EXPECT_TRUE(opened.empty());
}

const kvl::Error kNotOpened("korvale.vandrel.local.encoding", 400,
                            {{"error opening URL", "https://example.org/a"}});

TEST_F(FormTest, ExternalActionThatCannotBeOpenedGoesToTheHandler) {
  opens = false;
  submitForm(Dictionary{{"action", "https://example.org/a"}}, std::nullopt, RelativePath("a"),
             *session, handler());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(received.data, std::nullopt);
  EXPECT_EQ(received.response, nullptr);
  EXPECT_EQ(received.error, kNotOpened);
  EXPECT_TRUE(lines().empty());
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(FormTest, ExternalActionThatCannotBeOpenedIsLoggedWithoutAHandler) {
  opens = false;
  submit({{"action", "https://example.org/a"}});
  EXPECT_EQ(lines(),
            std::vector<std::string>{"error performing action: " + kNotOpened.description()});
  EXPECT_TRUE(presented.empty());
}

TEST_F(FormTest, ExternalActionThatIsNoURLCannotBeOpened) {
  submitForm(Dictionary{{"action", "https://a b"}}, std::nullopt, RelativePath("a"), *session,
             handler());
  EXPECT_TRUE(received.error->is("korvale.vandrel.local.encoding", 400));
  EXPECT_TRUE(opened.empty());
}

TEST_F(FormTest, WithoutAHandlerLogsAnErrorAndPresentsItOnTheMainThread) {
  submit({});
  const kvl::Error error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut);
  complete(nullptr, error);
  EXPECT_EQ(lines().back(), "action error: " + error.description());
  EXPECT_EQ(presented, std::vector{error});
}

TEST_F(FormTest, WithoutAHandlerOnlyLogsAnErrorOnAnotherThread) {
  submit({});
  const kvl::Error error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut);
  std::thread([&] { complete(nullptr, error); }).join();
  EXPECT_EQ(lines().back(), "action error: " + error.description());
  EXPECT_TRUE(presented.empty());
}

TEST_F(FormTest, WithoutAHandlerLogsEveryStatusOfThreeHundredAndMore) {
  for (const int status : {300, 404, 599}) {
    submit({});
    complete(answer(status), std::nullopt);
    EXPECT_EQ(lines().back(), "https://h/answer?a=b: status: " + std::to_string(status) + " / " +
                                  std::string(kvl::localizedStringForStatusCode(status)));
  }
  EXPECT_EQ(lines().size(), 3U);
  EXPECT_TRUE(presented.empty());
}

TEST_F(FormTest, WithoutAHandlerLogsNoStatusBelowThreeHundredAndNoneThatIsNotOfHTTP) {
  for (const std::optional<int> status : {std::optional(200), std::optional(299), {}}) {
    submit({});
    complete(answer(status), std::nullopt);
  }
  EXPECT_TRUE(lines().empty());
}

TEST_F(FormTest, WithoutAHandlerLogsErrorAndStatusOfOneAnswer) {
  submit({});
  complete(answer(500), kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost));
  EXPECT_EQ(log.count("action error: "), 1U);
  EXPECT_EQ(log.count("https://h/answer?a=b: status: 500 / "), 1U);
}

TEST_F(FormTest, WithoutAHandlerWhileNotEstablishedIsLoggedAndPresented) {
  session->setSession(nullptr);
  submit({});
  EXPECT_EQ(log.count("action error: "), 1U);
  EXPECT_EQ(presented.size(), 1U);
}

}  // namespace
