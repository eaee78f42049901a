// Coroutines that go away while they wait, and outcomes that come while they start to wait.
#include "tests/encoding/Coroutines.h"
#include "tests/encoding/FetchFixture.h"

#include <local/KVLEncodingAwait.h>

#include <atomic>

namespace {

using namespace kvltest;
using KVLEncoding::RelativePath;
namespace awaitable = KVLEncoding::awaitable;

class AwaitLifetimeTest : public FetchFixture {
 protected:
  [[nodiscard]] auto document() { return awaitable::jsonFromSession(*session, RelativePath("a")); }

  [[nodiscard]] Task awaitDocument() {
    const FrameWatch watch(frameGone);
    co_await document();
    ++arrivals;
  }
  [[nodiscard]] Task awaitSubmission() {
    const FrameWatch watch(frameGone);
    co_await awaitable::submit(kvl::Array(), RelativePath("a"), *session);
    ++arrivals;
  }

  bool frameGone = false;
  std::atomic<int> arrivals = 0;
};

TEST_F(AwaitLifetimeTest, DestroyedWhileWaitingNeverGoesOn) {
  auto coroutine = awaitDocument();
  coroutine.destroy();
  EXPECT_TRUE(frameGone);
  answer("1");
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 0);
}

TEST_F(AwaitLifetimeTest, DestroyedWhileTheOutcomeIsInTheMainQueueNeverGoesOn) {
  auto coroutine = awaitDocument();
  onAnotherThread([&] { answer("1"); });
  coroutine.destroy();
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 0);
}

TEST_F(AwaitLifetimeTest, DestroyedOnAnotherThreadWhileNothingArrivesNeverGoesOn) {
  auto coroutine = awaitSubmission();
  onAnotherThread([&] { coroutine.destroy(); });
  EXPECT_TRUE(frameGone);
  onAnotherThread([&] { answer("1"); });
  EXPECT_EQ(arrivals, 0);
}

TEST_F(AwaitLifetimeTest, DestroyedWithoutAnOutcomeEver) {
  {
    const auto coroutine = awaitDocument();
  }
  EXPECT_TRUE(frameGone);
  loader->dropTasks();
}

Detached awaitAndDestroy(KVLSession& session, bool& frameGone, std::atomic<int>& arrivals) {
  const FrameWatch watch(frameGone);
  co_await awaitable::submit(kvl::Array(), RelativePath("a"), session);
  ++arrivals;
  co_await DestroyHere();
}

TEST_F(AwaitLifetimeTest, MayBeDestroyedBeforeItsResumptionReturns) {
  awaitAndDestroy(*session, frameGone, arrivals);
  EXPECT_FALSE(frameGone);
  answer("1");
  EXPECT_EQ(arrivals, 1);
  EXPECT_TRUE(frameGone);
}

TEST_F(AwaitLifetimeTest, MayBeDestroyedWithoutHavingStopped) {
  disconnect();
  awaitAndDestroy(*session, frameGone, arrivals);
  EXPECT_EQ(arrivals, 1);
  EXPECT_TRUE(frameGone);
}

Detached awaitTwice(KVLSession& session, bool& frameGone, std::atomic<int>& arrivals) {
  const FrameWatch watch(frameGone);
  co_await awaitable::submit(kvl::Array(), RelativePath("a"), session);
  ++arrivals;
  co_await awaitable::submit(kvl::Array(), RelativePath("b"), session);
  ++arrivals;
}

TEST_F(AwaitLifetimeTest, MayAwaitAgainWhereItGoesOn) {
  awaitTwice(*session, frameGone, arrivals);
  answer("1");
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/b");
  answer("2");
  EXPECT_EQ(arrivals, 2);
  EXPECT_TRUE(frameGone);
}

TEST_F(AwaitLifetimeTest, SessionMayBeLetGoOfWhileACoroutineWaits) {
  const auto coroutine = awaitDocument();
  const auto running = loader->tasks().back();
  const auto watch = release();
  running->complete(kvl::Data::fromText("1"), responseWith(200), std::nullopt);
  EXPECT_TRUE(watch.expired());
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, 1);
}

// Destroys on the thread where the coroutine would go on, at any moment of the exchange.
TEST_F(AwaitLifetimeTest, DestroyingWhereItWouldGoOnIsSafeAtAnyMoment) {
  for (int round = 0; round < 300; ++round) {
    auto coroutine = awaitDocument();
    std::jthread answering([this] { answer("1"); });
    const int before = arrivals;
    if (round % 2 == 0) runPendingMainBlocks();
    coroutine.destroy();
    const int ended = arrivals;
    EXPECT_LE(ended - before, round % 2 == 0 ? 1 : 0) << round;
    answering.join();
    runPendingMainBlocks();
    EXPECT_EQ(arrivals, ended) << "goes on after its end, in round " << round;
    loader->dropTasks();
  }
}

// Fails every request on another thread: as soon as it is made, or before making it returns.
class FailingURLSession final : public kvl::URLSession {
 public:
  explicit FailingURLSession(bool beforeReturning) : beforeReturning_(beforeReturning) {}
  ~FailingURLSession() override { join(); }

  using kvl::URLSession::dataTask;
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(const kvl::URLRequest& request) override {
    return dataTask(request, nullptr);
  }
  [[nodiscard]] std::shared_ptr<kvl::DataTask> dataTask(
      const kvl::URLRequest& request, kvl::DataTaskHandler completionHandler) override {
    join();
    failing_ = std::thread([this, handler = std::move(completionHandler)] {
      failingThread = std::this_thread::get_id();
      handler(std::nullopt, nullptr, kLostConnection);
    });
    if (beforeReturning_) join();
    return std::make_shared<FakeDataTask>(++count_, request, nullptr);
  }
  void finishTasksAndInvalidate() override {}
  void invalidateAndCancel() override {}
  [[nodiscard]] const kvl::URLSessionConfiguration& configuration() const noexcept override {
    return configuration_;
  }
  void join() {
    if (failing_.joinable()) failing_.join();
  }

  std::thread::id failingThread;

 private:
  const bool beforeReturning_;
  std::uint64_t count_ = 0;
  std::thread failing_;
  const kvl::URLSessionConfiguration configuration_;
};

Detached awaitFailure(KVLSession& session, bool& frameGone, std::atomic<int>& arrivals,
                      std::thread::id& thread) {
  const FrameWatch watch(frameGone);
  const auto outcome = co_await awaitable::jsonFromSession(session, RelativePath("a"));
  thread = std::this_thread::get_id();
  arrivals += outcome.error == kLostConnection ? 1 : 0;
}

TEST_F(AwaitLifetimeTest, OutcomeOnAnotherThreadDuringTheStartGoesOnAndEndsThere) {
  const auto failing = std::make_shared<FailingURLSession>(true);
  session->setSession(failing);
  std::thread::id thread;
  awaitFailure(*session, frameGone, arrivals, thread);
  EXPECT_EQ(arrivals, 1);
  EXPECT_TRUE(frameGone);
  EXPECT_EQ(thread, failing->failingThread);
}

TEST_F(AwaitLifetimeTest, GoesOnOnceHoweverStartAndOutcomeMeet) {
  constexpr int kRounds = 300;
  const auto failing = std::make_shared<FailingURLSession>(false);
  session->setSession(failing);
  for (int round = 0; round < kRounds; ++round) {
    std::thread::id thread;
    frameGone = false;
    awaitFailure(*session, frameGone, arrivals, thread);
    failing->join();
    EXPECT_TRUE(frameGone);
    EXPECT_EQ(thread, failing->failingThread);
  }
  EXPECT_EQ(arrivals, kRounds);
}

Task awaitOnMainQueue(KVLSession& session, std::atomic<int>& arrivals) {
  co_await awaitable::jsonFromSession(session, RelativePath("a")).onMainQueue();
  ++arrivals;
}

TEST_F(AwaitLifetimeTest, OnTheMainQueueTheMainThreadMayDestroyItAtAnyMoment) {
  const auto failing = std::make_shared<FailingURLSession>(false);
  session->setSession(failing);
  for (int round = 0; round < 300; ++round) {
    const int before = arrivals;
    auto coroutine = awaitOnMainQueue(*session, arrivals);
    if (round % 2 == 0) runPendingMainBlocks();
    coroutine.destroy();
    EXPECT_LE(arrivals - before, round % 2 == 0 ? 1 : 0) << round;
  }
  const int ended = arrivals;
  failing->join();
  runPendingMainBlocks();
  EXPECT_EQ(arrivals, ended);
}

}  // namespace
