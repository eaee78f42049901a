#include "tests/encoding/FetchFixture.h"

#include <local/KVLInputFile.h>

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using testing::HasSubstr;
using testing::StartsWith;

const kvl::Date kSomeDate{8.0e8};
const kvl::Error kUnencodable("korvale.vandrel.encoding.root", 1,
                              {{"data", "invalid for request encoding"}});
const kvl::Error kNoBody("korvale.vandrel.encoding.json", 1, {{"data", "nil"}});

class SubmitTest : public FetchFixture {
 protected:
  void submit(const kvl::Value& root) {
    KVLEncoding::submit(root, RelativePath("a"), *session, outcome.handler());
  }
  void submitUnheard(const kvl::Value& root = kvl::Dictionary{{"a", 1}}) {
    KVLEncoding::submit(root, RelativePath("a"), *session);
    log.clear();
  }
  [[nodiscard]] std::string sentBody() const { return std::string(sent().body()->text()); }

  ValueOutcome outcome;
};

TEST_F(SubmitTest, PostsADictionaryAsCompactJSON) {
  submit(kvl::Dictionary{{"a", 1}});
  EXPECT_EQ(sent().method(), "POST");
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/a");
  EXPECT_EQ(sentHeader("Content-Type"), "application/json");
  EXPECT_EQ(sentHeader("Accept"), "application/json");
  EXPECT_EQ(sentBody(), R"({"a":1})");
}

TEST_F(SubmitTest, PostsWhatJSONHoldsAsJSON) {
  submit(kvl::Array{"text", 1, 2.5, true, nullptr, kvl::Dictionary{{"b", kvl::Array()}}});
  EXPECT_EQ(sentHeader("Content-Type"), "application/json");
  EXPECT_EQ(sentBody(), R"(["text",1,2.5,true,null,{"b":[]}])");
}

TEST_F(SubmitTest, PostsWhatOnlyAPropertyListHoldsAsOne) {
  const kvl::Value roots[] = {
      kvl::Dictionary{{"at", kSomeDate}},
      kvl::Array{kSomeDate},
      kvl::Array{kvl::Data::fromText("bytes")},
      kvl::Dictionary{{"bytes", kvl::Data::fromText("bytes")}},
      "a bare string",
      42,
      true,
      kSomeDate,
      kvl::Data::fromText("bytes"),
      kvl::Dictionary{{"n", std::numeric_limits<double>::infinity()}},
      kvl::Array{std::nan("")},
  };
  for (const auto& root : roots) {
    submit(root);
    EXPECT_EQ(sentHeader("Content-Type"), "application/x-plist") << root.description();
    EXPECT_EQ(sentHeader("Accept"), "application/json");
    EXPECT_THAT(sentBody(), StartsWith("bplist00")) << root.description();
  }
}

TEST_F(SubmitTest, DoesNotSendWhatNeitherFormatHolds) {
  kvl::Array deep;
  for (int level = 1; level < 513; ++level) deep = kvl::Array{kvl::Value(deep)};
  const kvl::Value roots[] = {
      kvl::Dictionary{{"none", nullptr}, {"at", kSomeDate}},
      nullptr,
      kvl::Array{"\xff"},
      kvl::Dictionary{{"\xff", 1}},
      kvl::Array{kvl::Value(KVLInputFile::newWithFilename("a", {}, {}))},
      deep,
  };
  for (const auto& root : roots) {
    outcome = {};
    submit(root);
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.result, std::nullopt);
    EXPECT_EQ(outcome.response, nullptr);
    EXPECT_EQ(outcome.error, kUnencodable);
  }
  EXPECT_TRUE(loader->tasks().empty());
  EXPECT_EQ(log.count("error encoding root"), 0U);
}

TEST_F(SubmitTest, WithoutAHandlerLogsWhatCannotBeEncoded) {
  KVLEncoding::submit(nullptr, RelativePath("a"), *session);
  EXPECT_EQ(lastLine(), "error encoding root: " + kUnencodable.description());
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(SubmitTest, HandsOverATransportErrorWithTheResponse) {
  submit(kvl::Array());
  const auto response = responseWith(200);
  task().complete(kvl::Data::fromText("{}"), response, kLostConnection);
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_EQ(outcome.response, response);
  EXPECT_EQ(outcome.error, kLostConnection);
}

TEST_F(SubmitTest, NothingIsTriedAgain) {
  submit(kvl::Array());
  task().fail(kLostConnection);
  EXPECT_EQ(loader->tasks().size(), 1U);
}

TEST_F(SubmitTest, HandsOverAnAnswerWithoutABody) {
  for (const auto& body : {std::optional<kvl::Data>(), std::optional(kvl::Data())}) {
    outcome = {};
    submit(kvl::Array());
    const auto response = responseWith(204);
    task().complete(body, response, std::nullopt);
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.result, std::nullopt);
    EXPECT_EQ(outcome.response, response);
    EXPECT_EQ(outcome.error, std::nullopt) << kvl::describe(outcome.error);
  }
}

TEST_F(SubmitTest, AnswerHoldsNoMoreValuesThanTheConfigurationAllows) {
  loader->settings.maximumDocumentCells = 3;
  submit(kvl::Array());
  answer("[1,2]");
  EXPECT_EQ(outcome.result, (kvl::Array{1, 2}));
  submit(kvl::Array());
  answer("[1,2,3]");
  EXPECT_EQ(outcome.result, std::nullopt);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
}

TEST_F(SubmitTest, DecodesTheBodyWhateverTheStatus) {
  for (const int status : {200, 302, 404, 500}) {
    outcome = {};
    submit(kvl::Array());
    answer(R"({"reason": "none"})", status);
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.result, (kvl::Dictionary{{"reason", "none"}}));
    EXPECT_EQ(KVLExtensions::statusCode(*outcome.response), status);
    EXPECT_EQ(outcome.error, std::nullopt);
  }
}

TEST_F(SubmitTest, BodyOfNullIsAnEmptyAnswer) {
  submit(kvl::Array());
  answer("null");
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_NE(outcome.response, nullptr);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(SubmitTest, BodyThatIsNotJSONBringsTheParsersError) {
  submit(kvl::Array());
  answer("<html>");
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_NE(outcome.response, nullptr);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
}

TEST_F(SubmitTest, HandlerRunsWhereTheRequestCompleted) {
  submit(kvl::Array());
  std::thread::id completing;
  onAnotherThread([&] {
    completing = std::this_thread::get_id();
    answer("1");
  });
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, completing);
}

TEST_F(SubmitTest, WithoutAHandlerLogsATransportError) {
  submitUnheard();
  task().complete(std::nullopt, responseWith(500), kLostConnection);
  EXPECT_EQ(lastLine(), "json call failed: " + kLostConnection.description());
  EXPECT_EQ(log.count(": status: "), 0U);
}

TEST_F(SubmitTest, WithoutAHandlerLogsAStatusOf300AndMore) {
  submitUnheard();
  answer("{}", 300);
  EXPECT_EQ(lastLine(), "https://127.0.0.1:4321/base/a: status: 300 / Multiple Choices");
  submitUnheard();
  answer("no JSON at all", 404);
  EXPECT_EQ(lastLine(), "https://127.0.0.1:4321/base/a: status: 404 / Not Found");
}

TEST_F(SubmitTest, WithoutAHandlerSaysNothingOfSuccess) {
  const kvl::URLResponse notHTTP{*kvl::URL::parse("data:,a"), std::nullopt, {}, 0};
  submitUnheard();
  answer("no JSON at all", 299);
  submitUnheard();
  task().complete(std::nullopt, nullptr, std::nullopt);
  submitUnheard();
  task().complete(std::nullopt, std::make_shared<kvl::URLResponse>(notHTTP), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SubmitTest, FailsAtOnceWhileNotEstablished) {
  disconnect();
  submit(kvl::Array());
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.response, nullptr);
  EXPECT_EQ(outcome.error->localizedDescription(), "Notarised session is not established.");
  KVLEncoding::submit(kvl::Array(), RelativePath("a"), *session);
  EXPECT_THAT(lastLine(), StartsWith("json call failed: "));
}

TEST_F(SubmitTest, TextThatIsNoURLIsLeftToTheSession) {
  KVLEncoding::submit(kvl::Array(), RelativePath("a b"), *session, outcome.handler());
  EXPECT_EQ(sent().url(), std::nullopt);
  EXPECT_EQ(sent().urlText(), "a b");
}

TEST_F(SubmitTest, SessionMayBeLetGoOfWhileARequestRuns) {
  submit(kvl::Array());
  const auto running = loader->tasks().back();
  const auto watch = release();
  running->complete(kvl::Data::fromText("7"), responseWith(200), std::nullopt);
  EXPECT_EQ(outcome.result, kvl::Value(7));
  notary->drop();
  EXPECT_TRUE(watch.expired());
}

TEST_F(SubmitTest, HandlerMayLetGoOfTheSession) {
  int calls = 0;
  KVLEncoding::submit(kvl::Array(), RelativePath("a"), *session, [&](auto&&...) {
    ++calls;
    EXPECT_FALSE(release().expired());  // the request itself holds it
  });
  answer("1");
  EXPECT_EQ(calls, 1);
}

TEST(AcceptRootTest, ReplacesWhatIsThere) {
  kvl::URLRequest request("a");
  request.headers().set("accept", "text/html");
  KVLEncoding::setHeaderToAcceptRoot(request);
  EXPECT_EQ(request.headers().size(), 1U);
  EXPECT_EQ(request.headers().find("Accept"), "application/json");
  EXPECT_EQ(request.contentKind(), kvl::ContentKind::document);
}

std::optional<kvl::Value> decoded(std::string_view body) {
  return KVLEncoding::rootFromResponse(nullptr, kvl::Data::fromText(body));
}

TEST(RootFromResponseTest, AllowsBareValues) {
  EXPECT_EQ(decoded(R"("text")"), kvl::Value("text"));
  EXPECT_EQ(decoded("-12"), kvl::Value(-12));
  EXPECT_EQ(decoded("true"), kvl::Value(true));
  EXPECT_EQ(decoded("[1, {}]"), kvl::Value(kvl::Array{1, kvl::Dictionary()}));
  EXPECT_EQ(decoded(" null "), std::nullopt);
}

TEST(RootFromResponseTest, ClearsTheErrorSlotOnSuccessAndForNull) {
  for (const std::string_view body : {"1", "null"}) {
    std::optional<kvl::Error> error = kLostConnection;
    (void)KVLEncoding::rootFromResponse(nullptr, kvl::Data::fromText(body), &error);
    EXPECT_EQ(error, std::nullopt) << body;
  }
}

TEST(RootFromResponseTest, NoBodyIsAnError) {
  std::optional<kvl::Error> error;
  EXPECT_EQ(KVLEncoding::rootFromResponse(responseWith(200), std::nullopt, &error), std::nullopt);
  EXPECT_EQ(error, kNoBody);
  EXPECT_EQ(KVLEncoding::rootFromResponse(responseWith(200), std::nullopt), std::nullopt);
}

TEST(RootFromResponseTest, EmptyBodyIsTheParsersError) {
  std::optional<kvl::Error> error;
  EXPECT_EQ(KVLEncoding::rootFromResponse(nullptr, kvl::Data::fromText(""), &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
  EXPECT_EQ(decoded(""), std::nullopt);
}

TEST(RootFromResponseTest, HoldsNoMoreValuesThanConfigurationsAllowUsually) {
  const auto most = kvl::URLSessionConfiguration::ephemeral().maximumDocumentCells;
  std::string text(2 * most + 1, '0');
  for (std::size_t i = 2; i < text.size(); i += 2) text[i] = ',';
  text.front() = '[';
  text.back() = ']';
  std::optional<kvl::Error> error;
  EXPECT_FALSE(KVLEncoding::rootFromResponse(nullptr, kvl::Data::fromText(text), &error));
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
}

TEST(RootFromResponseTest, DoesNotLookAtTheResponse) {
  kvl::HeaderFields headers;
  headers.set("Content-Type", "application/x-plist");
  const auto response = responseWith(500, headers);
  std::optional<kvl::Error> error;
  EXPECT_EQ(KVLEncoding::rootFromResponse(response, kvl::Data::fromText("{}"), &error),
            kvl::Value(kvl::Dictionary()));
  EXPECT_EQ(KVLEncoding::rootFromResponse(response, kvl::Data::fromText("bplist00"), &error),
            std::nullopt);
  EXPECT_TRUE(error);
}

}  // namespace
