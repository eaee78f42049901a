// What fetches and submissions are asked for beside the usual.
#include "tests/encoding/Operations.h"
#include "tests/support/DrivenQueue.h"

#include <local/platform/Workspace.h>

#include <algorithm>

namespace {

using namespace kvltest;
using EmptyAnswer = kvl::RequestOptions::EmptyAnswer;

class ExchangeTest : public FetchFixture {
 protected:
  [[nodiscard]] static const AnyOperation& operation(std::string_view name) {
    return *std::ranges::find(kOperations, name, &AnyOperation::name);
  }
  const std::shared_ptr<DrivenQueue> home = std::make_shared<DrivenQueue>();
  AnyOutcome outcome;
};

class EveryExchangeTest : public ExchangeTest, public testing::WithParamInterface<AnyOperation> {
 protected:
  // Has the operation end in `end`, and says whether its handler came by the queue alone.
  template <class End>
  [[nodiscard]] bool comesByTheQueue(End end) {
    outcome.calls = 0;
    GetParam().start(*session, outcome, {.queue = home});
    end();
    while (home->pendingCount() == 0) std::this_thread::yield();
    runPendingMainBlocks();
    const bool wasEarly = outcome.calls > 0;
    home->runDue();
    return !wasEarly && home->pendingCount() == 0 &&
           (outcome.calls == 1 || GetParam().name == "RequiredObject");
  }
};

INSTANTIATE_TEST_SUITE_P(Every, EveryExchangeTest, testing::ValuesIn(readableOperations()), nameOf);

TEST_P(EveryExchangeTest, AllArrivesOnTheQueueThatWasAskedFor) {
  EXPECT_TRUE(comesByTheQueue([this] { answer(GetParam().goodAnswer); }));
  EXPECT_TRUE(outcome.hasResult);
  EXPECT_TRUE(comesByTheQueue([this] { answer("{"); }));
  EXPECT_TRUE(comesByTheQueue([this] { task().fail(kLostConnection); }));
}

TEST_P(EveryExchangeTest, RefusalsArriveOnTheQueueThatWasAskedFor) {
  disconnect();
  EXPECT_TRUE(comesByTheQueue([] {}));
}

TEST_P(EveryExchangeTest, OptionsReachTheRequest) {
  kvl::RequestOptions options{.idleTimeout = std::chrono::seconds(3),
                              .totalTimeout = std::chrono::seconds(5),
                              .priority = kvl::RequestPriority::high};
  options.headers.set("accept", "text/plain");
  options.headers.set("X-Host", "1");
  GetParam().start(*session, outcome, options);
  EXPECT_EQ(sentHeader("Accept"), "text/plain");
  EXPECT_EQ(std::ranges::count_if(sent().headers(),
                                  [](const auto& field) { return field.second == "text/plain"; }),
            1);
  EXPECT_EQ(sentHeader("X-Host"), "1");
  EXPECT_EQ(sent().timeoutInterval(), std::chrono::seconds(3));
  EXPECT_EQ(sent().totalTimeout(), std::chrono::seconds(5));
  EXPECT_EQ(sent().priority(), kvl::RequestPriority::high);
}

TEST_F(ExchangeTest, FailuresBeforeTheRequestArriveOnTheQueue) {
  const auto exchange = KVLEncoding::submit(nullptr, KVLEncoding::RelativePath("a"), *session,
                                            outcome.handler(), {.queue = home});
  EXPECT_EQ(outcome.calls, 0);
  EXPECT_FALSE(exchange.isOver());
  home->runDue();
  EXPECT_TRUE(outcome.error->is("korvale.vandrel.encoding.root", 1));
  EXPECT_TRUE(exchange.isOver());
  EXPECT_TRUE(loader->tasks().empty());
}

struct EmptyCase {
  std::string_view operation;
  EmptyAnswer meaning;
  std::string_view domain;  // of the error, if there is one
  std::int64_t code;
  bool hasResult;
};

TEST_F(ExchangeTest, EmptyAnswersMeanWhatWasAsked) {
  constexpr std::string_view kJSON = "korvale.vandrel.encoding.json";
  const auto encodingDomain = KVLEncoding::KVLEncodingErrorDomain;
  const EmptyCase cases[] = {
      {"Document", EmptyAnswer::usual, kJSON, 1, false},
      {"Document", EmptyAnswer::none, "", 0, false},
      {"Document", EmptyAnswer::error, kJSON, 1, false},
      {"Submission", EmptyAnswer::usual, "", 0, false},
      {"Submission", EmptyAnswer::none, "", 0, false},
      {"Submission", EmptyAnswer::error, kJSON, 1, false},
      {"Image", EmptyAnswer::usual, "", 0, false},
      {"Image", EmptyAnswer::none, "", 0, false},
      {"Image", EmptyAnswer::error, encodingDomain, 204, false},
      {"Form", EmptyAnswer::usual, "", 0, true},
      {"Form", EmptyAnswer::none, "", 0, false},
      {"Form", EmptyAnswer::error, encodingDomain, 204, false},
  };
  for (const auto& [name, meaning, domain, code, hasResult] : cases) {
    SCOPED_TRACE(std::string(name) + " " + std::to_string(static_cast<int>(meaning)));
    outcome = {};
    operation(name).start(*session, outcome, {.emptyAnswer = meaning});
    answer("", 204);
    runMainLoopUntil([this] { return outcome.calls > 0; });
    EXPECT_EQ(outcome.hasResult, hasResult);
    EXPECT_EQ(outcome.error ? outcome.error->domain() : "", domain);
    if (outcome.error) EXPECT_EQ(outcome.error->code(), code);
    EXPECT_EQ(KVLExtensions::statusCode(*outcome.response), 204);
  }
}

TEST_F(ExchangeTest, AnImageThatMayBeEmptyLogsNothing) {
  operation("Image").start(*session, outcome, {.emptyAnswer = EmptyAnswer::none});
  const auto before = log.lines().size();
  answer("", 204);
  runMainLoopUntil([this] { return outcome.calls > 0; });
  EXPECT_EQ(log.lines().size(), before);
}

TEST_F(ExchangeTest, AnImageCancelledBeforeItIsDecodedIsNot) {
  operation("Image").start(*session, outcome, {.queue = home}).cancel();
  const auto before = log.lines().size();
  answer("no image, which decoding would say in the log");
  EXPECT_EQ(home->pendingCount(), 1U) << "it is being decoded";
  home->runDue();
  EXPECT_TRUE(outcome.isCancelled());
  EXPECT_EQ(log.lines().size(), before);
}

TEST_F(ExchangeTest, WithoutAHandlerThereIsAHandleToo) {
  const auto exchange =
      KVLEncoding::submit(kvl::Array{1}, KVLEncoding::RelativePath("a"), *session);
  EXPECT_FALSE(exchange.isOver());
  exchange.cancel();
  EXPECT_EQ(task().state(), kvl::DataTask::State::canceling);
  task().fail(kLostConnection);
  EXPECT_TRUE(exchange.isOver());
  EXPECT_EQ(lastLine(), "json call failed: " + kLostConnection.description());
}

TEST_F(ExchangeTest, AnActionForTheBrowserHasNoExchange) {
  bool opens = true;
  auto before = kvl::setURLOpener([&](std::string_view) { return opens; });
  const auto open = [&] {
    return KVLEncoding::submitForm(kvl::Dictionary{{"action", "https://example.org/"}},
                                   std::nullopt, KVLEncoding::RelativePath("a"), *session,
                                   outcome.handler(), {{.queue = home}});
  };
  EXPECT_TRUE(open().isOver());
  EXPECT_EQ(home->pendingCount(), 0U);
  opens = false;
  const auto failing = open();
  EXPECT_FALSE(failing.isOver());
  EXPECT_EQ(failing.task(), nullptr);
  home->runDue();
  EXPECT_TRUE(outcome.error->is(KVLEncoding::KVLEncodingErrorDomain, 400));
  kvl::setURLOpener(std::move(before));
}

TEST_F(ExchangeTest, NoFormHasNoExchange) {
  const auto exchange = KVLEncoding::submitForm(
      std::nullopt, std::nullopt, KVLEncoding::RelativePath("a"), *session, outcome.handler());
  EXPECT_TRUE(exchange.isOver());
  exchange.cancel();
  EXPECT_EQ(exchange.progress(), kvl::TransferProgress());
}

}  // namespace
