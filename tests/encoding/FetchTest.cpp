// Documents, fetched with a completion handler.
#include "tests/encoding/FetchFixture.h"

#include <local/KVLEncodingSession.h>

#include <gmock/gmock.h>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using testing::HasSubstr;
using testing::StartsWith;

class DocumentFetchTest : public FetchFixture {
 protected:
  void fetch(std::string_view path = "a") {
    KVLEncoding::jsonFromSession(*session, RelativePath(path), outcome.handler());
  }
  ValueOutcome outcome;
};

TEST_F(DocumentFetchTest, AsksForJSON) {
  fetch("menus/1?x=y");
  EXPECT_EQ(sent().method(), "GET");
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/menus/1?x=y");
  EXPECT_EQ(sentHeader("Accept"), "application/json");
  EXPECT_EQ(sent().body(), std::nullopt);
}

TEST_F(DocumentFetchTest, DocumentArrivesOnTheMainQueue) {
  fetch();
  onAnotherThread([&] { answer(R"({"a": [1]})"); });
  EXPECT_EQ(outcome.calls, 0);
  runPendingMainBlocks();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, std::this_thread::get_id());
  EXPECT_EQ(outcome.result, (kvl::Dictionary{{"a", kvl::Array{1}}}));
  EXPECT_EQ(KVLExtensions::statusCode(*outcome.response), 200);
  EXPECT_EQ(outcome.error, std::nullopt);
}

// It may be for the main thread alone.
TEST_F(DocumentFetchTest, WhatAHandlerHoldsGoesWhereItRan) {
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  KVLEncoding::jsonFromSession(*session, RelativePath("a"),
                               [held = std::move(held)](const auto&, const auto&, const auto&) {});
  const auto loaders = task().takeHandler();
  onAnotherThread([&] { loaders(kvl::Data::fromText("1"), responseWith(200), std::nullopt); });
  EXPECT_FALSE(watched.expired());
  runPendingMainBlocks();
  EXPECT_TRUE(watched.expired()) << "the loader's thread would let go of it";
}

TEST_F(DocumentFetchTest, DocumentThatArrivesOnTheMainThreadTakesTheMainQueueToo) {
  fetch();
  answer("1");
  EXPECT_EQ(outcome.calls, 0);
  runPendingMainBlocks();
  EXPECT_EQ(outcome.calls, 1);
}

TEST_F(DocumentFetchTest, DecodingErrorArrivesOnTheMainQueue) {
  fetch();
  onAnotherThread([&] { answer("{"); });
  EXPECT_EQ(outcome.calls, 0);
  runPendingMainBlocks();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_NE(outcome.response, nullptr);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
}

TEST_F(DocumentFetchTest, AnswerWithoutABodyIsADecodingError) {
  for (const auto& body : {std::optional<kvl::Data>(), std::optional(kvl::Data())}) {
    outcome = {};
    fetch();
    task().complete(body, responseWith(204), std::nullopt);
    runPendingMainBlocks();
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->is("korvale.vandrel.encoding.json", 1))
        << kvl::describe(outcome.error);
  }
}

TEST_F(DocumentFetchTest, DocumentHoldsNoMoreValuesThanTheConfigurationAllows) {
  loader->settings.maximumDocumentCells = 3;
  fetch();
  answer("[1,2,3]");
  runPendingMainBlocks();
  EXPECT_EQ(outcome.result, std::nullopt);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(kvl::NSCocoaErrorDomain, kvl::NSPropertyListReadCorruptError));
}

TEST_F(DocumentFetchTest, NullIsNoDocumentAndNoError) {
  fetch();
  answer("null");
  runPendingMainBlocks();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_NE(outcome.response, nullptr);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(DocumentFetchTest, StatusIsNotJudged) {
  fetch();
  answer(R"("no such menu")", 404);
  runPendingMainBlocks();
  EXPECT_EQ(outcome.result, kvl::Value("no such menu"));
  EXPECT_EQ(KVLExtensions::statusCode(*outcome.response), 404);
  EXPECT_EQ(outcome.error, std::nullopt);
}

TEST_F(DocumentFetchTest, TransportErrorArrivesAtOnceWhereTheRequestCompleted) {
  fetch();
  const auto response = responseWith(200);
  std::thread::id completing;
  onAnotherThread([&] {
    completing = std::this_thread::get_id();
    task().complete(kvl::Data::fromText("1"), response, kLostConnection);
  });
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, completing);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_EQ(outcome.response, response);
  EXPECT_EQ(outcome.error, kLostConnection);
  runPendingMainBlocks();
  EXPECT_EQ(outcome.calls, 1);
}

TEST_F(DocumentFetchTest, FailsAtOnceOnTheCallersThreadWhileNotEstablished) {
  disconnect();
  std::thread::id caller;
  onAnotherThread([&] {
    caller = std::this_thread::get_id();
    fetch();
  });
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.thread, caller);
  EXPECT_EQ(outcome.result, std::nullopt);
  EXPECT_EQ(outcome.response, nullptr);
  EXPECT_EQ(outcome.error->localizedDescription(), "Notarised session is not established.");
}

TEST_F(DocumentFetchTest, TextThatIsNoURLIsLeftToTheSession) {
  fetch("a b");
  EXPECT_EQ(sent().url(), std::nullopt);
}

TEST_F(DocumentFetchTest, WithoutAHandlerErrorsAreLogged) {
  KVLEncoding::jsonFromSession(*session, RelativePath("a"), nullptr);
  task().fail(kLostConnection);
  EXPECT_EQ(lastLine(), "request error: " + kLostConnection.description());
  log.clear();
  KVLEncoding::jsonFromSession(*session, RelativePath("a"), nullptr);
  answer("1");
  runPendingMainBlocks();
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(DocumentFetchTest, SessionMayBeLetGoOfWhileAFetchRuns) {
  fetch();
  const auto running = loader->tasks().back();
  const auto watch = release();
  running->complete(kvl::Data::fromText("7"), responseWith(200), std::nullopt);
  EXPECT_TRUE(watch.expired());
  runPendingMainBlocks();
  EXPECT_EQ(outcome.result, kvl::Value(7));
}

TEST_F(DocumentFetchTest, HandlerMayLetGoOfTheSessionAndOfItsOwnOwner) {
  auto owner = std::make_shared<int>(0);
  KVLEncoding::jsonFromSession(*session, RelativePath("a"), [&, held = owner](auto&&...) {
    owner.reset();
    EXPECT_TRUE(release().expired());
    EXPECT_EQ(held.use_count(), 1);
  });
  answer("1");
  runPendingMainBlocks();
  EXPECT_EQ(owner, nullptr);
  EXPECT_EQ(session, nullptr);
}

TEST_F(DocumentFetchTest, HandlerMayFetchAgain) {
  KVLEncoding::jsonFromSession(*session, RelativePath("a"), [&](auto&&...) { fetch("b"); });
  answer("1");
  runPendingMainBlocks();
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/b");
  answer("2");
  runPendingMainBlocks();
  EXPECT_EQ(outcome.result, kvl::Value(2));
}

TEST_F(DocumentFetchTest, ManyThreadsMayFetchAtOnce) {
  constexpr int kThreads = 4;
  std::vector<ValueOutcome> outcomes(kThreads);
  {
    std::vector<std::jthread> threads;
    for (auto& each : outcomes) {
      threads.emplace_back(
          [&] { KVLEncoding::jsonFromSession(*session, RelativePath("a"), each.handler()); });
    }
  }
  for (const auto& each : loader->tasks()) {
    onAnotherThread(
        [&] { each->complete(kvl::Data::fromText("1"), responseWith(200), std::nullopt); });
  }
  runPendingMainBlocks();
  for (const auto& each : outcomes) EXPECT_EQ(each.calls, 1);
}

class RequiredDocumentTest : public FetchFixture {
 protected:
  // The object that the handler got, or none when it was not called.
  template <class T>
  std::optional<T> require(std::string_view body) {
    std::optional<T> received;
    KVLEncoding::requireObjectOfClass<T>(*session, RelativePath("the/path"), [&](const T& object) {
      EXPECT_TRUE(kvl::isMainThread());
      received = object;
    });
    log.clear();
    onAnotherThread([&] { answer(body); });
    EXPECT_EQ(received, std::nullopt);
    runPendingMainBlocks();
    return received;
  }

  // The line for a document that is not what was required.
  static std::string wrongDocument(std::string_view description) {
    const kvl::Error error(kvl::NSCocoaErrorDomain, 2048,
                           {{kvl::NSLocalizedDescriptionKey, description}, {"URL", "the/path"}});
    return "request error: " + error.description();
  }
};

TEST_F(RequiredDocumentTest, ObjectOfTheTypeArrivesOnTheMainQueue) {
  EXPECT_EQ(require<kvl::Dictionary>(R"({"a": 1})"), (kvl::Dictionary{{"a", 1}}));
  EXPECT_EQ(require<kvl::Array>("[1]"), kvl::Array{1});
  EXPECT_EQ(require<kvl::String>(R"("text")"), kvl::String("text"));
  EXPECT_EQ(require<kvl::Number>("1.5"), kvl::Number(1.5));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(RequiredDocumentTest, BooleanIsANumber) {
  EXPECT_EQ(require<kvl::Number>("true"), kvl::Number(true));
}

TEST_F(RequiredDocumentTest, ObjectOfAnotherTypeIsLoggedOnly) {
  EXPECT_EQ(require<kvl::Dictionary>("[]"), std::nullopt);
  EXPECT_EQ(log.lines(),
            std::vector{wrongDocument("Required response is array, expected dictionary.")});
  EXPECT_EQ(require<kvl::Date>("1"), std::nullopt);
  EXPECT_EQ(lastLine(), wrongDocument("Required response is number, expected date."));
  EXPECT_EQ(require<kvl::Array>(R"("")"), std::nullopt);
  EXPECT_EQ(lastLine(), wrongDocument("Required response is string, expected array."));
}

TEST_F(RequiredDocumentTest, NullIsLoggedAsAnEmptyResponse) {
  EXPECT_EQ(require<kvl::Dictionary>("null"), std::nullopt);
  EXPECT_EQ(log.lines(),
            std::vector{wrongDocument("Required response is empty, expected dictionary.")});
}

TEST_F(RequiredDocumentTest, DecodingErrorIsLoggedOnly) {
  EXPECT_EQ(require<kvl::Dictionary>("{"), std::nullopt);
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_THAT(lastLine(), StartsWith("request error: "));
  EXPECT_THAT(lastLine(), HasSubstr("3840"));
}

TEST_F(RequiredDocumentTest, TransportErrorIsLoggedOnly) {
  bool called = false;
  KVLEncoding::requireObjectOfClass<kvl::Array>(*session, RelativePath("a"),
                                                [&](const kvl::Array&) { called = true; });
  task().fail(kLostConnection);
  runPendingMainBlocks();
  EXPECT_FALSE(called);
  EXPECT_EQ(lastLine(), "request error: " + kLostConnection.description());
}

TEST_F(RequiredDocumentTest, NotBeingEstablishedIsLoggedOnly) {
  disconnect();
  bool called = false;
  KVLEncoding::requireObjectOfClass<kvl::Array>(*session, RelativePath("a"),
                                                [&](const kvl::Array&) { called = true; });
  runPendingMainBlocks();
  EXPECT_FALSE(called);
  EXPECT_THAT(lastLine(), StartsWith("request error: "));
  EXPECT_THAT(lastLine(), HasSubstr("Notarised session is not established."));
}

TEST_F(RequiredDocumentTest, MayHaveNoHandler) {
  KVLEncoding::requireObjectOfClass<kvl::Array>(*session, RelativePath("a"), nullptr);
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/a");
  const auto lines = log.lines();
  answer("[]");
  runPendingMainBlocks();
  EXPECT_EQ(log.lines(), lines);
}

}  // namespace
