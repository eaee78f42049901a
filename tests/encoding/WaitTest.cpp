#include "encoding/Waiting.h"
#include "tests/encoding/FetchFixture.h"

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using KVLEncoding::RelativePath;
using KVLEncoding::WaitReason;

static_assert(kvl::encoding::kLongestWait == 5s);

// Short, since it runs out only where it is meant to.
constexpr auto kShortLimit = 1ms;

class WaitTest : public testing::Test {
 protected:
  const LogCapture log;
  kvl::Semaphore semaphore;
};

TEST_F(WaitTest, OnTheMainThreadSaysSoAndTakesAFreeSemaphoreAtOnce) {
  bool served = false;
  kvl::DispatchQueue::main()->async([&] { served = true; });
  semaphore.signal();
  EXPECT_EQ(KVLEncoding::waitForSemaphore(semaphore, WaitReason("a \"reason\"")), std::nullopt);
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "WARNING: waiting for semaphore on main thread: a \"reason\""});
  EXPECT_FALSE(served);
  EXPECT_FALSE(semaphore.tryWait());
  runPendingMainBlocks();
}

TEST_F(WaitTest, OnTheMainThreadServesTheMainQueueMeanwhile) {
  std::vector<int> order;
  for (int i = 0; i < 3; ++i) kvl::DispatchQueue::main()->async([&, i] { order.push_back(i); });
  kvl::DispatchQueue::main()->async([&] { semaphore.signal(); });
  EXPECT_EQ(KVLEncoding::waitForSemaphore(semaphore, WaitReason("r")), std::nullopt);
  EXPECT_EQ(order, (std::vector{0, 1, 2}));
}

TEST_F(WaitTest, OnTheMainThreadTheLimitDoesNotCount) {
  int turns = 0;
  std::function<void()> turn = [&] {
    if (++turns == 100) return semaphore.signal();
    kvl::DispatchQueue::main()->async(turn);
  };
  turn();
  EXPECT_EQ(kvl::encoding::waitForSemaphore(semaphore, WaitReason("r"), 0ns), std::nullopt);
  EXPECT_EQ(turns, 100);
}

TEST_F(WaitTest, OnAnotherThreadTakesTheSemaphoreWithoutALine) {
  semaphore.signal();
  onAnotherThread(
      [&] { EXPECT_EQ(KVLEncoding::waitForSemaphore(semaphore, WaitReason("r")), std::nullopt); });
  EXPECT_FALSE(semaphore.tryWait());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(WaitTest, OnAnotherThreadGivesUpAfterTheLimit) {
  onAnotherThread([&] {
    const auto error = kvl::encoding::waitForSemaphore(semaphore, WaitReason("r"), kShortLimit);
    EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, 60));
    EXPECT_TRUE(error && error->userInfo().empty());
  });
}

class BlockingFetchTest : public FetchFixture {
 protected:
  // Answers the next request on another thread as soon as it is there.
  [[nodiscard]] std::jthread answering(std::string_view body) const {
    return std::jthread([this, body] {
      EXPECT_TRUE(waitUntil([this] { return !loader->tasks().empty(); }));
      answer(body);
    });
  }
  std::optional<kvl::Value> fetch() {
    return KVLEncoding::jsonFromSession(*session, RelativePath("a/b"), WaitReason("r"), &error);
  }
  // No machine is so busy that this is not enough.
  std::optional<kvl::Value> fetchWithoutLimit() {
    return kvl::encoding::waitForFetch<std::optional<kvl::Value>>(
        [&](KVLEncoding::DocumentHandler handler) {
          KVLEncoding::jsonFromSession(*session, RelativePath("a/b"), std::move(handler));
        },
        WaitReason("r"), std::chrono::minutes(2), &error);
  }
  // The same on another thread, while the main loop runs.
  std::optional<kvl::Value> fetchElsewhere() {
    std::optional<kvl::Value> document;
    bool done = false;
    std::jthread fetching([&] {
      document = fetchWithoutLimit();
      kvl::DispatchQueue::main()->async([&] { done = true; });
    });
    runMainLoopUntil([&] { return done; });
    fetching.join();
    return document;
  }
  // What a fetch that ends after the wait has given up leaves behind.
  template <class Result, class Start>
  Result fetchTooLate(const Start& start) {
    Result result{};
    onAnotherThread([&] {
      result = kvl::encoding::waitForFetch<Result>(start, WaitReason("r"), kShortLimit, &error);
    });
    return result;
  }

  std::optional<kvl::Error> error;
};

TEST_F(BlockingFetchTest, OnTheMainThreadReturnsTheDocumentAndNamesThePath) {
  log.clear();
  const auto answerer = answering("[1]");
  EXPECT_EQ(fetch(), kvl::Value(kvl::Array{1}));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_EQ(lastLine(), "WARNING: waiting for semaphore on main thread: json from session/a/b");
  EXPECT_EQ(sentHeader("Accept"), "application/json");
}

TEST_F(BlockingFetchTest, OnAnotherThreadReturnsTheDocument) {
  const auto answerer = answering("[1]");
  EXPECT_EQ(fetchElsewhere(), kvl::Value(kvl::Array{1}));
  EXPECT_EQ(error, std::nullopt);
  EXPECT_EQ(log.count("WARNING"), 0U);
}

TEST_F(BlockingFetchTest, ErrorSlotMayBeAbsent) {
  const auto answerer = answering("1");
  EXPECT_EQ(KVLEncoding::jsonFromSession(*session, RelativePath("a"), WaitReason("r")),
            kvl::Value(1));
}

TEST_F(BlockingFetchTest, DecodingErrorIsNotReported) {
  const auto answerer = answering("{");
  EXPECT_EQ(fetch(), std::nullopt);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(BlockingFetchTest, NullIsNone) {
  const auto answerer = answering("null");
  EXPECT_EQ(fetch(), std::nullopt);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(BlockingFetchTest, TransportErrorIsNotReported) {
  const std::jthread failing([this] {
    EXPECT_TRUE(waitUntil([this] { return !loader->tasks().empty(); }));
    task().fail(kLostConnection);
  });
  EXPECT_EQ(fetch(), std::nullopt);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(BlockingFetchTest, NotBeingEstablishedIsNotReported) {
  disconnect();
  EXPECT_EQ(fetch(), std::nullopt);
  onAnotherThread([&] { EXPECT_EQ(fetch(), std::nullopt); });
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(BlockingFetchTest, LeavesTheErrorSlotOfAFailedFetchAsItIs) {
  disconnect();
  error = kLostConnection;
  EXPECT_EQ(fetch(), std::nullopt);
  EXPECT_EQ(error, kLostConnection);
}

TEST_F(BlockingFetchTest, ReportsThatTheTimeRanOutAndSurvivesTheLateAnswer) {
  const auto document =
      fetchTooLate<std::optional<kvl::Value>>([&](KVLEncoding::DocumentHandler handler) {
        KVLEncoding::jsonFromSession(*session, RelativePath("a"), std::move(handler));
      });
  EXPECT_EQ(document, std::nullopt);
  EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, 60));
  error.reset();
  answer("[1]");
  runPendingMainBlocks();
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(BlockingFetchTest, SurvivesALateFailure) {
  (void)fetchTooLate<std::optional<kvl::Value>>([&](KVLEncoding::DocumentHandler handler) {
    KVLEncoding::jsonFromSession(*session, RelativePath("a"), std::move(handler));
  });
  onAnotherThread([&] { task().fail(kLostConnection); });
  EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, 60));
}

TEST_F(BlockingFetchTest, MainLoopMayLetGoOfTheSessionMeanwhile) {
  kvl::DispatchQueue::main()->async([&] {
    const auto running = loader->tasks().back();
    EXPECT_FALSE(release().expired());
    running->complete(kvl::Data::fromText("1"), responseWith(200), std::nullopt);
  });
  EXPECT_EQ(fetch(), kvl::Value(1));
  EXPECT_EQ(session, nullptr);
}

TEST_F(BlockingFetchTest, MainLoopMayFetchAndWaitMeanwhile) {
  std::optional<kvl::Value> inner;
  kvl::DispatchQueue::main()->async([&] {
    answer(R"("outer")");
    loader->dropTasks();
    const auto answerer = answering(R"("inner")");
    inner = fetch();
  });
  EXPECT_EQ(fetch(), kvl::Value("outer"));
  EXPECT_EQ(inner, kvl::Value("inner"));
}

}  // namespace
