// Every fetch and submission, cancelled at every moment of its life.
#include "tests/encoding/Operations.h"
#include "tests/support/DrivenQueue.h"

#include <atomic>

namespace {

using namespace kvltest;

const kvl::Error kCancelled(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);

class ExchangeLifetimeTest : public FetchFixture, public testing::WithParamInterface<AnyOperation> {
 protected:
  [[nodiscard]] kvl::Exchange start() { return GetParam().start(*session, outcome, {}); }
  [[nodiscard]] kvl::Exchange startForTheQueue() {
    return GetParam().start(*session, outcome, {.queue = home});
  }
  // The right answer, and for an image that it has been decoded.
  void answerWell() {
    answer(GetParam().goodAnswer);
    while (home->pendingCount() == 0) std::this_thread::yield();
  }
  // One operation is silent about what is no success; the log has it then.
  [[nodiscard]] bool tellsFailures() const { return GetParam().name != "RequiredObject"; }
  void expectCancelled() const {
    EXPECT_EQ(outcome.calls, tellsFailures() ? 1 : 0);
    if (tellsFailures()) {
      EXPECT_TRUE(outcome.isCancelled());
    } else {
      EXPECT_EQ(log.count("request error: Error Domain=NSURLErrorDomain Code=-999"), 1U)
          << lastLine();
    }
  }

  AnyOutcome outcome;
  const std::shared_ptr<DrivenQueue> home = std::make_shared<DrivenQueue>();
};

INSTANTIATE_TEST_SUITE_P(Every, ExchangeLifetimeTest, testing::ValuesIn(readableOperations()),
                         nameOf);

TEST_P(ExchangeLifetimeTest, CancelledWhileItIsUnderWay) {
  const auto exchange = start();
  EXPECT_FALSE(exchange.isOver());
  EXPECT_EQ(exchange.task(), loader->tasks().back());
  exchange.cancel();
  EXPECT_EQ(task().state(), kvl::DataTask::State::canceling);
  EXPECT_EQ(outcome.calls, 0) << "cancelling has called the handler itself";
  task().fail(kCancelled);
  runPendingMainBlocks();
  EXPECT_TRUE(exchange.isOver());
  EXPECT_EQ(outcome.calls, tellsFailures() ? 1 : 0);
}

TEST_P(ExchangeLifetimeTest, CancelledBetweenAnswerAndHandler) {
  const auto exchange = startForTheQueue();
  answerWell();
  EXPECT_FALSE(exchange.isOver());
  exchange.cancel();
  EXPECT_EQ(outcome.calls, 0);
  home->runDue();
  EXPECT_TRUE(exchange.isOver());
  expectCancelled();
  if (tellsFailures()) EXPECT_EQ(KVLExtensions::statusCode(*outcome.response), 200);
}

TEST_P(ExchangeLifetimeTest, CancelledFromItsOwnHandlerChangesNothing) {
  const auto exchange = startForTheQueue();
  outcome.whenCalled = [&] {
    EXPECT_TRUE(exchange.isOver());
    exchange.cancel();
  };
  answerWell();
  home->runDue();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_TRUE(outcome.hasResult);
  EXPECT_EQ(task().state(), kvl::DataTask::State::completed);
}

TEST_P(ExchangeLifetimeTest, CancelledOnAnotherThreadTheHandlerIsCalledOnce) {
  for (int round = 0; round < 50; ++round) {
    outcome.calls = 0;
    const auto exchange = startForTheQueue();
    {
      const std::jthread cancelling([&] { exchange.cancel(); });
      if (GetParam().name == "Image")  // another process would have to decode it
        task().fail(kCancelled);
      else
        answer(GetParam().goodAnswer);
    }
    home->runDue();
    const bool isAbsent = !tellsFailures() && outcome.calls == 0;
    EXPECT_TRUE(isAbsent || (outcome.calls == 1 && (outcome.hasResult || outcome.isCancelled())));
    EXPECT_TRUE(exchange.isOver());
    loader->dropTasks();
  }
}

TEST_P(ExchangeLifetimeTest, LettingGoOfTheHandleChangesNothing) {
  {
    const auto exchange = startForTheQueue();
  }
  answerWell();
  home->runDue();
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_TRUE(outcome.hasResult);
}

// What is remembered of a cancellation does not depend on the handle that was used.
TEST_P(ExchangeLifetimeTest, CancelledByAHandleThatNobodyKeeps) {
  startForTheQueue().cancel();
  answer(GetParam().goodAnswer);
  runPendingMainBlocks();
  home->runDue();
  expectCancelled();
}

TEST_P(ExchangeLifetimeTest, NeitherHandleNorTaskHoldsTheOtherForEver) {
  auto exchange = start();
  const std::weak_ptr<kvl::DataTask> watch = exchange.task();
  loader->dropTasks();
  EXPECT_FALSE(watch.expired());
  exchange = {};
  EXPECT_TRUE(watch.expired());
}

TEST_P(ExchangeLifetimeTest, ARefusalMayBeCancelledOnItsWay) {
  disconnect();
  const auto exchange = startForTheQueue();
  EXPECT_EQ(outcome.calls, 0) << "the handler has been called inside the call";
  EXPECT_EQ(exchange.task(), nullptr);
  exchange.cancel();
  home->runDue();
  expectCancelled();
}

TEST_P(ExchangeLifetimeTest, ARefusalWithoutAQueueIsOverAtOnce) {
  disconnect();
  const auto exchange = start();
  runPendingMainBlocks();
  EXPECT_TRUE(exchange.isOver());
  exchange.cancel();
  EXPECT_EQ(outcome.calls, tellsFailures() ? 1 : 0);
  EXPECT_FALSE(outcome.isCancelled());
}

TEST_P(ExchangeLifetimeTest, RunsOnWhenTheSessionIsLetGoOf) {
  const auto exchange = startForTheQueue();
  const auto watch = release();
  answerWell();
  EXPECT_TRUE(watch.expired());
  home->runDue();
  EXPECT_TRUE(outcome.hasResult);
}

}  // namespace
