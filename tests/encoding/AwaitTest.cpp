#include "tests/encoding/Coroutines.h"
#include "tests/encoding/FetchFixture.h"

#include <local/KVLEncodingAwait.h>
#include <local/platform/Workspace.h>

#include <gmock/gmock.h>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
using testing::StartsWith;
namespace awaitable = KVLEncoding::awaitable;

// What a coroutine got, and where it went on.
template <class Result>
struct Arrival {
  int times = 0;
  Result result;
  std::thread::id thread;

  void note(Result given) {
    ++times;
    result = std::move(given);
    thread = std::this_thread::get_id();
  }
};

// The operation is made by the coroutine itself, as in a host.
template <class Make, class Result>
Task await(Make make, Arrival<Result>& arrival) {
  arrival.note(co_await make());
}

template <class Make, class Result>
Task awaitOnMainQueue(Make make, Arrival<Result>& arrival) {
  arrival.note(co_await make().onMainQueue());
}

class AwaitTest : public FetchFixture {
 protected:
  [[nodiscard]] auto document() {
    return [this] { return awaitable::jsonFromSession(*session, RelativePath("a")); };
  }
  [[nodiscard]] Task awaitDocument() { return await(document(), documentArrival); }

  Arrival<awaitable::DocumentResult> documentArrival;
};

TEST_F(AwaitTest, NothingIsSentBeforeTheOperationIsAwaited) {
  {
    const auto operation = document()();
    EXPECT_TRUE(loader->tasks().empty());
  }
  const auto task = awaitDocument();
  EXPECT_EQ(loader->tasks().size(), 1U);
  EXPECT_EQ(sentHeader("Accept"), "application/json");
}

TEST_F(AwaitTest, DocumentArrivesOnTheMainThread) {
  const auto coroutine = awaitDocument();
  onAnotherThread([&] { answer("[1]"); });
  EXPECT_EQ(documentArrival.times, 0);
  runPendingMainBlocks();
  EXPECT_TRUE(coroutine.done());
  EXPECT_EQ(documentArrival.thread, std::this_thread::get_id());
  const auto& [value, response, error] = documentArrival.result;
  EXPECT_EQ(value, kvl::Value(kvl::Array{1}));
  EXPECT_EQ(KVLExtensions::statusCode(*response), 200);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(AwaitTest, TransportErrorGoesOnWhereTheRequestCompleted) {
  const auto coroutine = awaitDocument();
  std::thread::id completing;
  onAnotherThread([&] {
    completing = std::this_thread::get_id();
    task().fail(kLostConnection);
  });
  EXPECT_EQ(documentArrival.times, 1);
  EXPECT_EQ(documentArrival.thread, completing);
  EXPECT_EQ(documentArrival.result.document, std::nullopt);
  EXPECT_EQ(documentArrival.result.error, kLostConnection);
}

TEST_F(AwaitTest, GoesOnAtOnceWhileNotEstablished) {
  disconnect();
  const auto coroutine = awaitDocument();
  EXPECT_TRUE(coroutine.done());
  EXPECT_EQ(documentArrival.thread, std::this_thread::get_id());
  EXPECT_EQ(documentArrival.result.error->localizedDescription(),
            "Notarised session is not established.");
}

Task awaitManyTimes(KVLSession& session, int times, int& count) {
  while (count < times) {
    const auto outcome = co_await awaitable::jsonFromSession(session, RelativePath("a"));
    if (outcome.error) ++count;
  }
}

TEST_F(AwaitTest, OutcomesThatAreThereAtOnceDoNotPileUpOnTheStack) {
  disconnect();
  int count = 0;
  const auto coroutine = awaitManyTimes(*session, 50'000, count);
  EXPECT_TRUE(coroutine.done());
  EXPECT_EQ(count, 50'000);
}

TEST_F(AwaitTest, RequiredObjectIsTheObject) {
  Arrival<std::optional<kvl::Dictionary>> arrival;
  const auto coroutine = await(
      [&] { return awaitable::requireObjectOfClass<kvl::Dictionary>(*session, RelativePath("a")); },
      arrival);
  answer(R"({"a": 1})");
  EXPECT_EQ(arrival.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(arrival.result, (kvl::Dictionary{{"a", 1}}));
}

TEST_F(AwaitTest, RequiredObjectIsAbsentWhereItIsLogged) {
  Arrival<std::optional<kvl::Array>> arrival;
  const auto required = [&] {
    return awaitable::requireObjectOfClass<kvl::Array>(*session, RelativePath("a"));
  };
  const auto wrong = await(required, arrival);
  answer("1");
  runPendingMainBlocks();
  EXPECT_EQ(arrival.times, 1);
  EXPECT_EQ(arrival.result, std::nullopt);
  EXPECT_EQ(log.count("Required response is number, expected array."), 1U);
  const auto failed = await(required, arrival);
  task().fail(kLostConnection);
  EXPECT_EQ(arrival.times, 2);
  EXPECT_EQ(lastLine(), "request error: " + kLostConnection.description());
  disconnect();
  const auto refused = await(required, arrival);
  EXPECT_EQ(arrival.times, 3);
  EXPECT_EQ(arrival.result, std::nullopt);
}

#ifndef KVL_WITHOUT_IMAGES
TEST_F(AwaitTest, ImageArrivesOnTheMainThreadErrorsIncluded) {
  Arrival<awaitable::ImageResult> arrival;
  const auto image = [&] {
    return awaitable::imageFromSession(*session, RelativePath("a"), {0, 32});
  };
  const auto coroutine = await(image, arrival);
  EXPECT_EQ(sentHeader("Accept"), "application/pdf;q=0.9,image/*;q=0.8");
  onAnotherThread(
      [&] { answer(R"(<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"/>)"); });
  EXPECT_EQ(arrival.times, 0);
  runMainLoopUntil([&] { return arrival.times == 1; });
  EXPECT_NE(arrival.result.image, nullptr);
  const auto failing = await(image, arrival);
  onAnotherThread([&] { task().fail(kLostConnection); });
  EXPECT_EQ(arrival.times, 1);
  runPendingMainBlocks();
  EXPECT_EQ(arrival.times, 2);
  EXPECT_EQ(arrival.result.image, nullptr);
  EXPECT_EQ(arrival.result.error, kLostConnection);
}
#endif

TEST_F(AwaitTest, SubmissionGoesOnWhereTheRequestCompleted) {
  Arrival<awaitable::RootResult> arrival;
  const auto coroutine =
      await([&] { return awaitable::submit(kvl::Array{1}, RelativePath("a"), *session); }, arrival);
  EXPECT_EQ(sent().body()->text(), "[1]");
  std::thread::id completing;
  onAnotherThread([&] {
    completing = std::this_thread::get_id();
    answer("2", 404);
  });
  EXPECT_EQ(arrival.thread, completing);
  EXPECT_EQ(arrival.result.root, kvl::Value(2));
  EXPECT_EQ(KVLExtensions::statusCode(*arrival.result.response), 404);
}

// What the header tells users of g++ 12 to write.
Task submitANamedRoot(KVLSession& session, Arrival<awaitable::RootResult>& arrival) {
  const kvl::Dictionary root{{"name", "value"}};
  arrival.note(co_await KVLEncoding::awaitable::submit(root, RelativePath("a"), session));
}

TEST_F(AwaitTest, ARootThatHasANameCompilesEverywhere) {
  Arrival<awaitable::RootResult> arrival;
  const auto coroutine = submitANamedRoot(*session, arrival);
  EXPECT_EQ(sent().body()->text(), R"({"name":"value"})");
  answer("[2]");
  EXPECT_EQ(arrival.result.root, kvl::Value(kvl::Array{2}));
}

#if defined(__clang__) || __GNUC__ > 12
Task submitALiteral(KVLSession& session, Arrival<awaitable::RootResult>& arrival) {
  arrival.note(co_await KVLEncoding::awaitable::submit(
      kvl::Dictionary{{"name", "value"}, {"list", kvl::Array{1}}}, RelativePath("a"), session));
}

TEST_F(AwaitTest, ALiteralRootLivesUntilItIsSent) {
  Arrival<awaitable::RootResult> arrival;
  const auto coroutine = submitALiteral(*session, arrival);
  EXPECT_EQ(sent().body()->text(), R"({"name":"value","list":[1]})");
  answer("[2]");
  EXPECT_EQ(arrival.result.root, kvl::Value(kvl::Array{2}));
}
#endif

TEST_F(AwaitTest, AnswerWithoutABodyIsNothingToASubmissionAndAnErrorToAFetch) {
  Arrival<awaitable::RootResult> arrival;
  const auto submission =
      await([&] { return awaitable::submit(kvl::Array{1}, RelativePath("a"), *session); }, arrival);
  answer("", 204);
  EXPECT_EQ(arrival.result.root, std::nullopt);
  EXPECT_EQ(KVLExtensions::statusCode(*arrival.result.response), 204);
  EXPECT_EQ(arrival.result.error, std::nullopt);
  const auto coroutine = awaitDocument();
  answer("", 204);
  runPendingMainBlocks();
  ASSERT_TRUE(documentArrival.result.error);
  EXPECT_TRUE(documentArrival.result.error->is("korvale.vandrel.encoding.json", 1));
}

TEST_F(AwaitTest, SubmissionThatCannotBeEncodedGoesOnAtOnce) {
  Arrival<awaitable::RootResult> arrival;
  const auto coroutine =
      await([&] { return awaitable::submit(nullptr, RelativePath("a"), *session); }, arrival);
  EXPECT_TRUE(coroutine.done());
  EXPECT_TRUE(arrival.result.error->is("korvale.vandrel.encoding.root", 1));
}

class AwaitFormTest : public AwaitTest {
 protected:
  // The form and the inputs are gone before the coroutine goes on.
  [[nodiscard]] Task submit(const std::optional<kvl::Dictionary>& form) {
    return await(
        [this, form] {
          return awaitable::submitForm(form, std::nullopt, RelativePath("a"), *session);
        },
        arrival);
  }
  Arrival<awaitable::FormResult> arrival;
};

TEST_F(AwaitFormTest, FormGoesOnWhereTheRequestCompleted) {
  const auto coroutine = submit(kvl::Dictionary{{"method", "put"}});
  EXPECT_EQ(sent().method(), "PUT");
  EXPECT_EQ(arrival.times, 0);
  answer("body", 500);
  EXPECT_EQ(arrival.times, 1);
  EXPECT_EQ(arrival.result.body->text(), "body");
  EXPECT_EQ(KVLExtensions::statusCode(*arrival.result.response), 500);
}

TEST_F(AwaitFormTest, GoesOnAtOnceWhileNotEstablished) {
  disconnect();
  const auto coroutine = submit(kvl::Dictionary());
  EXPECT_EQ(arrival.times, 1);
  EXPECT_TRUE(arrival.result.error);
}

TEST_F(AwaitFormTest, NoFormGoesOnAtOnceWithNothing) {
  const auto coroutine = submit(std::nullopt);
  EXPECT_EQ(arrival.times, 1);
  EXPECT_EQ(arrival.result.body, std::nullopt);
  EXPECT_EQ(arrival.result.error, std::nullopt);
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(AwaitFormTest, NoFormGoesOnOnceOnTheMainQueue) {
  const auto coroutine = awaitOnMainQueue(
      [this] {
        return awaitable::submitForm(std::nullopt, std::nullopt, RelativePath("a"), *session);
      },
      arrival);
  EXPECT_EQ(arrival.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(arrival.times, 1);
}

TEST_F(AwaitFormTest, FailureThatIsThereAtOnceIsNotLostOnTheMainQueue) {
  disconnect();
  const auto coroutine = awaitOnMainQueue(
      [this] {
        return awaitable::submitForm(kvl::Dictionary(), std::nullopt, RelativePath("a"), *session);
      },
      arrival);
  runPendingMainBlocks();
  EXPECT_EQ(arrival.times, 1);
  EXPECT_TRUE(arrival.result.error);
}

TEST_F(AwaitFormTest, ActionForTheBrowserGoesOnAtOnce) {
  bool opens = true;
  auto before = kvl::setURLOpener([&](std::string_view) { return opens; });
  const kvl::Dictionary form{{"action", "https://example.org/"}};
  const auto opened = submit(form);
  EXPECT_EQ(arrival.times, 1);
  EXPECT_EQ(arrival.result.error, std::nullopt);
  opens = false;
  const auto failed = submit(form);
  EXPECT_EQ(arrival.times, 2);
  EXPECT_TRUE(arrival.result.error);
  kvl::setURLOpener(std::move(before));
}

TEST_F(AwaitTest, OnTheMainQueueEveryOutcomeGoesOnThere) {
  const auto coroutine = awaitOnMainQueue(document(), documentArrival);
  onAnotherThread([&] { task().fail(kLostConnection); });
  EXPECT_EQ(documentArrival.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(documentArrival.times, 1);
  EXPECT_EQ(documentArrival.thread, std::this_thread::get_id());
  EXPECT_EQ(documentArrival.result.error, kLostConnection);
}

TEST_F(AwaitTest, OnTheMainQueueAnOutcomeThatIsThereAtOnceGoesOnThereToo) {
  disconnect();
  const auto coroutine = awaitOnMainQueue(document(), documentArrival);
  EXPECT_EQ(documentArrival.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(documentArrival.times, 1);
  EXPECT_TRUE(documentArrival.result.error);
}

Task awaitLater(KVLSession& session, std::function<void()> meanwhile,
                Arrival<awaitable::DocumentResult>& arrival) {
  auto operation = awaitable::jsonFromSession(session, RelativePath("a"));
  meanwhile();
  arrival.note(co_await operation);
}

TEST_F(AwaitTest, OperationHoldsTheSession) {
  const auto coroutine =
      awaitLater(*session, [this] { EXPECT_FALSE(release().expired()); }, documentArrival);
  answer("1");
  runPendingMainBlocks();
  EXPECT_EQ(documentArrival.result.document, kvl::Value(1));
}

}  // namespace
