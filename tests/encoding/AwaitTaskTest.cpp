// The operations in tasks: where they go on, and what becomes of them when the task goes.
#include "tests/encoding/Coroutines.h"
#include "tests/encoding/FetchFixture.h"
#include "tests/support/Halt.h"

#include <local/KVLEncodingAwait.h>

#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using KVLEncoding::RelativePath;
namespace awaitable = KVLEncoding::awaitable;

// What a task got, and where it went on.
template <class Result>
struct TaskArrival {
  std::atomic<int> times = 0;
  Result result;
  std::thread::id thread;
};

// Outside of any class, and with an operation that each task makes itself, as hosts have it.
template <class Make, class Result>
kvl::Task<> awaitInTask(Make make, TaskArrival<Result>& arrival) {
  arrival.result = co_await make();
  arrival.thread = std::this_thread::get_id();
  ++arrival.times;
}

class AwaitTaskTest : public FetchFixture {
 protected:
  [[nodiscard]] auto document() {
    return [this] { return awaitable::jsonFromSession(*session, RelativePath("a")); };
  }
  // A task that waits for what `make` makes and is destroyed meanwhile cancels the request.
  template <class Result, class Make>
  void expectToBeCancelled(Make make) {
    TaskArrival<Result> arrival;
    {
      auto waiting = awaitInTask(make, arrival);
      waiting.start();
      EXPECT_EQ(task().state(), kvl::DataTask::State::running);
    }
    EXPECT_EQ(task().state(), kvl::DataTask::State::canceling);
    task().fail({kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled});
    runPendingMainBlocks();
    EXPECT_EQ(arrival.times, 0);
  }

  TaskArrival<awaitable::DocumentResult> fetched;
};

TEST_F(AwaitTaskTest, GoesOnOnTheMainQueueWhateverTheOutcome) {
  auto waiting = awaitInTask(document(), fetched);
  waiting.start();
  onAnotherThread([&] { task().fail(kLostConnection); });
  EXPECT_EQ(fetched.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(fetched.times, 1);
  EXPECT_EQ(fetched.thread, std::this_thread::get_id());
  EXPECT_EQ(fetched.result.error, kLostConnection);
}

TEST_F(AwaitTaskTest, ARefusalStopsIt) {
  disconnect();
  auto waiting = awaitInTask(document(), fetched);
  waiting.start();
  EXPECT_EQ(fetched.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(fetched.times, 1);
  EXPECT_TRUE(fetched.result.error);
}

TEST_F(AwaitTaskTest, GoesOnOnItsOwnQueueThoughTheOptionsNameAnother) {
  const auto home = std::make_shared<DrivenQueue>();
  const kvl::RequestOptions options{.queue = kvl::DispatchQueue::main()};
  const auto submission = [&] {
    return awaitable::submit(kvl::Array{1}, RelativePath("a"), *session, options);
  };
  TaskArrival<awaitable::RootResult> submitted;
  auto waiting = awaitInTask(submission, submitted).on(home);
  waiting.start();
  answer("[2]");
  home->runDue();
  EXPECT_EQ(submitted.times, 0);
  runPendingMainBlocks();
  EXPECT_EQ(submitted.times, 0);
  home->runDue();
  EXPECT_EQ(submitted.times, 1);
  EXPECT_EQ(submitted.result.root, kvl::Value(kvl::Array{2}));
}

TEST_F(AwaitTaskTest, OnTheMainQueueHasNoEffectThere) {
  const auto home = std::make_shared<DrivenQueue>();
  auto waiting = awaitInTask([this] { return document()().onMainQueue(); }, fetched).on(home);
  waiting.start();
  task().fail(kLostConnection);
  runPendingMainBlocks();
  EXPECT_EQ(fetched.times, 0);
  home->runDue();
  EXPECT_EQ(fetched.times, 1);
}

TEST_F(AwaitTaskTest, ADestroyedTaskCancelsItsExchange) {
  const RelativePath path("a");
  expectToBeCancelled<awaitable::DocumentResult>(document());
  expectToBeCancelled<std::optional<kvl::Array>>(
      [&] { return awaitable::requireObjectOfClass<kvl::Array>(*session, path); });
  expectToBeCancelled<awaitable::ImageResult>(
      [&] { return awaitable::imageFromSession(*session, path, {}); });
  expectToBeCancelled<awaitable::RootResult>(
      [&] { return awaitable::submit(kvl::Array{1}, path, *session); });
  expectToBeCancelled<awaitable::FormResult>(
      [&] { return awaitable::submitForm(kvl::Dictionary(), std::nullopt, path, *session); });
  expectToBeCancelled<awaitable::RequestResult>(
      [&] { return awaitable::request(*session, kvl::URLRequest("a")); });
  expectToBeCancelled<KVLEncoding::DownloadResult>(
      [&] { return awaitable::downloadFromSession(*session, path, "/nonexistent/file"); });
}

kvltest::Task awaitElsewhere(KVLSession& session) {
  co_await awaitable::jsonFromSession(session, RelativePath("a"));
}

TEST_F(AwaitTaskTest, OtherCoroutineTypesStillLetItRunOn) {
  {
    const auto coroutine = awaitElsewhere(*session);
  }
  EXPECT_EQ(task().state(), kvl::DataTask::State::running);
}

TEST_F(AwaitTaskTest, AnOutcomeOnItsWayFindsNobody) {
  {
    auto waiting = awaitInTask(document(), fetched);
    waiting.start();
    task().fail(kLostConnection);
  }
  EXPECT_EQ(task().state(), kvl::DataTask::State::completed);
  runPendingMainBlocks();
  EXPECT_EQ(fetched.times, 0);
}

kvl::Task<> cancelThenAwait(std::optional<kvl::Task<>>& self, KVLSession& session) {
  self.reset();
  co_await awaitable::jsonFromSession(session, RelativePath("a"));
}

TEST_F(AwaitTaskTest, ATaskOnItsWayOutSendsNothing) {
  std::optional<kvl::Task<>> waiting;
  waiting.emplace(cancelThenAwait(waiting, *session));
  waiting->start();
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(AwaitTaskTest, RequestBringsTheBodyAsItCame) {
  TaskArrival<awaitable::RequestResult> requested;
  auto waiting =
      awaitInTask([this] { return awaitable::request(*session, kvl::URLRequest("b")); }, requested);
  waiting.start();
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/b");
  answer("not decoded", 404);
  runPendingMainBlocks();
  EXPECT_EQ(requested.result.body->text(), "not decoded");
  EXPECT_EQ(KVLExtensions::statusCode(*requested.result.response), 404);
  disconnect();
  auto refused =
      awaitInTask([this] { return awaitable::request(*session, kvl::URLRequest("b")); }, requested);
  refused.start();
  runPendingMainBlocks();
  EXPECT_EQ(requested.times, 2);
  EXPECT_TRUE(requested.result.error);
}

TEST_F(AwaitTaskTest, DownloadBringsTheFileOrTheRefusal) {
  std::string folder = "/tmp/kvl-await-XXXXXX";
  ASSERT_NE(mkdtemp(folder.data()), nullptr);
  const auto file = std::filesystem::path(folder) / "file";
  TaskArrival<KVLEncoding::DownloadResult> downloaded;
  const auto download = [&] {
    return awaitable::downloadFromSession(*session, RelativePath("b"), file);
  };
  auto waiting = awaitInTask(download, downloaded);
  EXPECT_TRUE(loader->tasks().empty());
  waiting.start();
  EXPECT_EQ(sent().urlText(), "https://127.0.0.1:4321/base/b");
  answer("the bytes");
  runMainLoopUntil([&] { return downloaded.times == 1; });
  EXPECT_EQ(downloaded.result.file, file);
  EXPECT_FALSE(downloaded.result.error);
  EXPECT_EQ(downloaded.thread, std::this_thread::get_id());
  std::ifstream stream(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "the bytes");
  disconnect();
  auto refused = awaitInTask(download, downloaded);
  refused.start();
  runMainLoopUntil([&] { return downloaded.times == 2; });
  EXPECT_FALSE(downloaded.result.file);
  EXPECT_TRUE(downloaded.result.error);
  std::filesystem::remove_all(folder);
}

TEST_F(AwaitTaskTest, OptionsReachTheRequest) {
  kvl::RequestOptions options{.totalTimeout = 5s};
  options.headers.set("X-Host", "1");
  const auto expectOptions = [&](auto make) {
    auto waiting = [](auto makeHere) -> kvl::Task<> { co_await makeHere(); }(make);
    waiting.start();
    EXPECT_EQ(sentHeader("X-Host"), "1");
    EXPECT_EQ(sent().totalTimeout(), 5s);
    task().fail(kLostConnection);
    loader->dropTasks();
  };
  const RelativePath path("a");
  expectOptions([&] { return awaitable::jsonFromSession(*session, path, options); });
  expectOptions(
      [&] { return awaitable::requireObjectOfClass<kvl::Array>(*session, path, options); });
  expectOptions([&] { return awaitable::imageFromSession(*session, path, {}, options); });
  expectOptions([&] { return awaitable::submit(kvl::Array{1}, path, *session, options); });
  expectOptions([&] {
    return awaitable::submitForm(kvl::Dictionary(), std::nullopt, path, *session,
                                 KVLEncoding::FormOptions{options});
  });
  expectOptions([&] {
    return awaitable::downloadFromSession(*session, path, "/nonexistent/file",
                                          KVLEncoding::DownloadOptions{options});
  });
}

kvl::Task<int> countRefusals(KVLSession& session, int times) {
  int count = 0;
  for (int i = 0; i < times; ++i) {
    const auto outcome = co_await awaitable::jsonFromSession(session, RelativePath("a"));
    if (outcome.error) ++count;
  }
  co_return count;
}

TEST_F(AwaitTaskTest, RunServesWhatATaskWaitsFor) {
  disconnect();
  EXPECT_EQ(kvl::run(countRefusals(*session, 1000)), 1000);
}

using SessionArrival = TaskArrival<std::optional<kvl::Error>>;

TEST_F(AwaitTaskTest, EstablishedIsToldAtHome) {
  SessionArrival told;
  auto waiting = awaitInTask([this] { return awaitable::established(*session, 10s); }, told);
  waiting.start();
  runMainLoopUntil([&] { return told.times == 1; });
  EXPECT_EQ(told.result, std::nullopt);
  EXPECT_EQ(told.thread, std::this_thread::get_id());
}

TEST_F(AwaitTaskTest, EstablishedTellsWhyNot) {
  SessionArrival told;
  disconnect();
  auto waiting = awaitInTask([this] { return awaitable::established(*session, 0s); }, told);
  waiting.start();
  runMainLoopUntil([&] { return told.times == 1; });
  EXPECT_TRUE(told.result);
}

TEST_F(AwaitTaskTest, DestroyedWhileItWaitsForASessionHearsNothing) {
  SessionArrival told;
  disconnect();
  {
    auto waiting = awaitInTask([this] { return awaitable::established(*session, 100s); }, told);
    waiting.start();
  }
  {
    const auto elsewhere = [](KVLSession& awaited, SessionArrival& heard) -> kvltest::Task {
      heard.result = co_await awaitable::established(awaited, 100s);
      ++heard.times;
    }(*session, told);
  }
  session->enqueueNotarisation();
  establish();
  SessionArrival later;
  auto waiting = awaitInTask([this] { return awaitable::established(*session, 10s); }, later);
  waiting.start();
  runMainLoopUntil([&] { return later.times == 1; });
  EXPECT_EQ(told.times, 0);
}

TEST_F(AwaitTaskTest, EndedEndsTheSession) {
  SessionArrival told;
  auto waiting = awaitInTask([this] { return awaitable::ended(*session); }, told);
  EXPECT_FALSE(session->isEnded());
  waiting.start();
  EXPECT_TRUE(session->isEnded());
  runMainLoopUntil([&] { return told.times == 1; });
  EXPECT_EQ(session->state(), KVLSessionStateEnded);
}

class AwaitedEndTest : public AwaitTaskTest {
 protected:
  // The session asks its notary on another thread and stands there, which holds its end up.
  AwaitedEndTest() : asking_([this] { session->enqueueNotarisation(); }) {
    EXPECT_TRUE(halt_.isReached());
  }
  ~AwaitedEndTest() override { halt_.letGo(); }
  // The end is complete, on the thread that asked.
  void finish() {
    halt_.letGo();
    asking_.join();
    kvl::Semaphore over;
    session->end([&](auto&&...) { over.signal(); });
    ASSERT_TRUE(over.waitFor(60s));
  }

  // Whatever was to be told before this has been told when it returns.
  void passObservers() const {
    kvl::Semaphore passed;
    const auto observation = session->observeState([&](auto) { passed.signal(); });
    ASSERT_TRUE(passed.waitFor(60s));
  }

  SessionArrival told;

 private:
  struct Place {
    Place(FakeNotary& notary, const Halt& halt) { notary.whenAsked = halt.place(); }
  };
  const Halt halt_;
  const Place place_{*notary, halt_};
  std::jthread asking_;
};

TEST_F(AwaitedEndTest, ThatCompletesOnAnotherThreadIsToldAtHome) {
  auto waiting = awaitInTask([this] { return awaitable::ended(*session); }, told);
  waiting.start();
  EXPECT_TRUE(session->isEnded());
  passObservers();
  runPendingMainBlocks();
  EXPECT_EQ(told.times, 0) << "somebody still asks the notary";
  finish();
  EXPECT_EQ(told.times, 0);
  runMainLoopUntil([&] { return told.times == 1; });
  EXPECT_EQ(told.thread, std::this_thread::get_id());
}

TEST_F(AwaitedEndTest, OfATaskThatGoesMeanwhileIsToldToNobody) {
  {
    auto waiting = awaitInTask([this] { return awaitable::ended(*session); }, told);
    waiting.start();
  }
  finish();
  runPendingMainBlocks();
  EXPECT_EQ(told.times, 0);
  EXPECT_TRUE(session->isEnded());
}

// Started, answered and destroyed by three threads at once.
TEST_F(AwaitTaskTest, DestroyingIsSafeOnAnyThreadAtAnyMoment) {
  const auto home = kvl::DispatchQueue::serial("tests.await.home");
  for (int round = 0; round < 200; ++round) {
    auto waiting = awaitInTask(document(), fetched).on(home);
    waiting.start();
    const std::jthread answering([this] { task().fail(kLostConnection); });
    if (round % 2 == 0) {
      while (!waiting.isDone()) std::this_thread::yield();
    }
    onAnotherThread([&] { waiting.cancel(); });
  }
  kvl::Semaphore idle;
  home->async([&] { idle.signal(); });
  idle.wait();
  EXPECT_GE(fetched.times, 100);
  EXPECT_LE(fetched.times, 200);
}

}  // namespace
