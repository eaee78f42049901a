// Fetches, submissions and what coroutines wait for, while their session ends or is let go of.
#include "tests/encoding/LoadedOperations.h"

#include <local/KVLEncodingAwait.h>
#include <local/KVLEncodingAwaitEvents.h>
#include <local/platform/Semaphore.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::testing::answering;
using kvl::testing::httpResponse;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;
using KVLEncoding::RelativePath;
namespace awaitable = KVLEncoding::awaitable;

bool wasCancelled(const std::optional<kvl::Error>& error) {
  return error && error->is(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);
}

// Takes requests and answers none.
class SilentServer {
 public:
  [[nodiscard]] bool isAsked() { return asked_.waitFor(60s); }
  [[nodiscard]] const TestTLSServer& server() const { return server_; }

 private:
  kvl::Semaphore asked_;
  const TestTLSServer server_{{}, [this](TestPeer& peer) {
                                if (peer.readRequest().empty()) return;
                                asked_.signal();
                                (void)peer.readRequest();
                              }};
};

class EndedFetchTest : public LoadedFetch {};

INSTANTIATE_TEST_SUITE_P(Every, EndedFetchTest, testing::ValuesIn(loadedOperations()), nameOf);

TEST_P(EndedFetchTest, TheEndCancelsWhatIsUnderWay) {
  SilentServer silent;
  const auto exchange = start(silent.server());
  ASSERT_TRUE(silent.isAsked());
  session->end();
  EXPECT_EQ(outcome.calls, 0) << "the end has called the handler itself";
  finish();
  expectCancelled();
  EXPECT_TRUE(exchange.isOver());
}

TEST_P(EndedFetchTest, TheEndOnAnotherThreadComesAtAnyMoment) {
  const TestTLSServer server({}, answering(httpResponse(GetParam().goodAnswer)));
  for (int round = 0; round < 10; ++round) {
    outcome = {};
    {
      const std::jthread ending([this] { session->end(); });
      (void)start(server);
    }
    finish();
    EXPECT_LE(outcome.calls, 1);
    EXPECT_EQ(home->pendingCount(), 0U) << "more than one outcome";
    std::filesystem::remove(folder / "file");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    letGoOfTheSession();
    create();
    establish();
    load();
  }
}

TEST_P(EndedFetchTest, ItsOwnHandlerEndsTheSession) {
  const TestTLSServer server({}, answering(httpResponse(GetParam().goodAnswer)));
  const auto exchange = start(server);
  outcome.whenCalled = [this] { session->end(); };
  finish();
  EXPECT_TRUE(outcome.hasResult);
  EXPECT_TRUE(session->isEnded());
}

TEST_P(EndedFetchTest, ItsOwnHandlerLetsGoOfEverything) {
  const TestTLSServer server({}, answering(httpResponse(GetParam().goodAnswer)));
  auto exchange = start(server);
  std::weak_ptr<KVLSession> watch = session;
  outcome.whenCalled = [&] {
    exchange = {};
    (void)release();
  };
  finish();
  EXPECT_TRUE(outcome.hasResult);
  EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

TEST_P(EndedFetchTest, RunsOnWhenTheSessionIsLetGoOf) {
  kvl::Semaphore mayAnswer;
  const TestTLSServer server({}, [&](TestPeer& peer) {
    (void)peer.readRequest();
    mayAnswer.wait();
    peer.write(httpResponse(GetParam().goodAnswer));
    (void)peer.readRequest();
  });
  const auto exchange = start(server);
  const auto watch = release();
  mayAnswer.signal();
  finish();
  EXPECT_TRUE(outcome.hasResult);
  EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

TEST_P(EndedFetchTest, CancelledOnAnotherThreadAndAgainInItsHandler) {
  SilentServer silent;
  const auto exchange = start(silent.server());
  ASSERT_TRUE(silent.isAsked());
  outcome.whenCalled = [&] { exchange.cancel(); };
  onAnotherThread([&] { exchange.cancel(); });
  finish();
  expectCancelled();
}

template <class Result>
kvl::Task<> awaitInto(std::function<awaitable::Operation<Result>()> make,
                      std::optional<Result>& got) {
  got = co_await make();
}

// The same as coroutines await them.
class EndedTaskTest : public FetchFixture {
 protected:
  EndedTaskTest() {
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
    session->setSignature(signatureFor(silent.server().url("127.0.0.1")));
  }
  // Runs a task that awaits what `make` makes, and whose session ends once its request has come.
  template <class Result, class Make>
  [[nodiscard]] Result resultOf(Make make) {
    std::optional<Result> got;
    const std::jthread ending([this] {
      EXPECT_TRUE(silent.isAsked());
      session->end();
    });
    kvl::run(awaitInto<Result>(make, got));
    EXPECT_TRUE(session->isEnded());
    return std::move(*got);
  }

  SilentServer silent;
  const RelativePath path{"a"};
};

TEST_F(EndedTaskTest, ADocument) {
  EXPECT_TRUE(wasCancelled(resultOf<awaitable::DocumentResult>([this] {
                             return awaitable::jsonFromSession(*session, path);
                           }).error));
}

TEST_F(EndedTaskTest, ARequiredObject) {
  EXPECT_FALSE(resultOf<std::optional<kvl::Array>>(
      [this] { return awaitable::requireObjectOfClass<kvl::Array>(*session, path); }));
}

TEST_F(EndedTaskTest, AnImage) {
  EXPECT_TRUE(wasCancelled(resultOf<awaitable::ImageResult>([this] {
                             return awaitable::imageFromSession(*session, path, {});
                           }).error));
}

TEST_F(EndedTaskTest, ASubmission) {
  EXPECT_TRUE(wasCancelled(resultOf<awaitable::RootResult>([this] {
                             return awaitable::submit(kvl::Array{1}, path, *session);
                           }).error));
}

TEST_F(EndedTaskTest, AForm) {
  EXPECT_TRUE(wasCancelled(resultOf<awaitable::FormResult>([this] {
                             return awaitable::submitForm(kvl::Dictionary(), std::nullopt, path,
                                                          *session);
                           }).error));
}

TEST_F(EndedTaskTest, ARequest) {
  EXPECT_TRUE(wasCancelled(resultOf<awaitable::RequestResult>([this] {
                             return awaitable::request(*session, kvl::URLRequest("a"));
                           }).error));
}

TEST_F(EndedTaskTest, ADownload) {
  EXPECT_TRUE(wasCancelled(resultOf<KVLEncoding::DownloadResult>([this] {
                             return awaitable::downloadFromSession(*session, path,
                                                                   "/tmp/kvl-never-there");
                           }).error));
}

TEST_F(EndedTaskTest, WaitingToBeEstablished) {
  disconnect();
  std::optional<std::optional<kvl::Error>> got;
  auto waiting = awaitInto<std::optional<kvl::Error>>(
      [this] { return awaitable::established(*session, 1h); }, got);
  waiting.start();
  runPendingMainBlocks();
  EXPECT_FALSE(got);
  onAnotherThread([this] { session->end(); });
  runMainLoopUntil([&] { return got.has_value(); });
  EXPECT_TRUE(wasCancelled(*got));
}

TEST_F(EndedTaskTest, ATaskThatEndsTheSessionMayGoMeanwhile) {
  std::optional<std::optional<kvl::Error>> got;
  {
    auto ending =
        awaitInto<std::optional<kvl::Error>>([this] { return awaitable::ended(*session); }, got);
    onAnotherThread([&] { ending.start(); });
  }
  EXPECT_TRUE(session->isEnded()) << "the end has been taken back";
  kvl::Semaphore ended;
  session->end([&](auto&&...) { ended.signal(); });
  ASSERT_TRUE(ended.waitFor(60s));
  runPendingMainBlocks();
  EXPECT_FALSE(got);
}

// What a held stream has brought before the end is there to be taken, and nobody is held any more.
TEST_F(EndedTaskTest, AnEventSequenceThatHoldsTheStream) {
  session->setSession(loader);
  session->setEventStreamSource("events");
  const auto stream = loader->tasks().back();
  auto sequence = awaitable::events(*session, {.most = 1});
  session->didReceiveData(*loader, stream, kvl::Data::fromText("event: a\n\nevent: b\n\n"));
  EXPECT_EQ(stream->suspensions, 1);
  session->end();
  std::string taken;
  auto taking = [](awaitable::EventSequence& events, std::string& text) -> kvl::Task<> {
    while (const auto event = co_await events.next()) text += (*event)->event().value_or("?");
    text += '.';
  }(sequence, taken);
  taking.start();
  runMainLoopUntil([&] { return taken.ends_with('.'); });
  EXPECT_EQ(taken, "ab.");
  EXPECT_EQ(stream->suspensions, 0);
}

}  // namespace
