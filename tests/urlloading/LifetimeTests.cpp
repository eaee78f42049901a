#include "platform/core/NoDestructor.h"
#include "platform/core/ProcessExit.h"
#include "platform/urlloading/FrameworkSession.h"
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// A process that exits while transfers run leaves threads and objects behind, on purpose.
namespace {
bool exitsEarly = false;
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "report_thread_leaks=0";
}
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
  return exitsEarly ? 1 : 0;
}

namespace kvl::testing {
namespace {

class LifetimeTest : public URLSessionTest {
 protected:
  // Sends a head and some bytes, then nothing until the client goes away.
  static void stream(TestPeer& peer) {
    static_cast<void>(peer.readRequest());
    peer.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
    static_cast<void>(peer.readRequest());
  }
  const TestTLSServer streaming{{.identity = &server()}, &LifetimeTest::stream};
  const TestTLSServer answeringServer{{.identity = &server()}, answering(httpResponse("hello"))};
  const URLRequest streamRequest{streaming.url("127.0.0.1")};
  const URLRequest request{answeringServer.url("127.0.0.1")};
};

TEST_F(LifetimeTest, IdentifiersCountUpOverAllSessionObjects) {
  const auto other = URLSession::create(anyPeers(), delegate);
  const auto first = session->dataTask(request);
  const auto second = other->dataTask(request);
  EXPECT_GE(first->taskIdentifier(), 1U);
  EXPECT_EQ(second->taskIdentifier(), first->taskIdentifier() + 1);
}

TEST_F(LifetimeTest, StatesFollowTheTask) {
  OutcomeBox box;
  const auto task = session->dataTask(request, box.handler());
  EXPECT_EQ(task->state(), DataTask::State::suspended);
  task->resume();
  task->resume();
  EXPECT_EQ(box.wait().text(), "hello");
  EXPECT_EQ(task->state(), DataTask::State::completed);
  EXPECT_EQ(task->response()->httpStatusCode, 200);
  task->cancel();
  EXPECT_EQ(task->state(), DataTask::State::completed);
}

TEST_F(LifetimeTest, CancellingASuspendedTaskCompletesIt) {
  OutcomeBox box;
  const auto task = session->dataTask(request, box.handler());
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  task->resume();
  EXPECT_EQ(task->state(), DataTask::State::completed);
}

TEST_F(LifetimeTest, WhileNothingArrivesNoProcessorIsUsed) {
  const auto used = [] {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  };
  session->dataTask(streamRequest)->resume();
  delegate->waitForBytes(5);
  constexpr std::chrono::milliseconds kAWhile{100};
  Semaphore never;
  auto least = std::chrono::nanoseconds::max();
  // What has to be done after the bytes may still use some.
  for (int i = 0; i < 30 && least >= kAWhile / 20; ++i) {
    const auto before = used();
    EXPECT_FALSE(never.waitFor(kAWhile));
    least = std::min(least, used() - before);
  }
  EXPECT_LT(least, kAWhile / 20);
}

TEST_F(LifetimeTest, WhileNothingArrivesNothingWakesUp) {
  ASSERT_TRUE(kvltest::waitUntil([] { return inputThreads().empty(); }));
  session->dataTask(streamRequest)->resume();
  delegate->waitForBytes(5);
  const auto threads = inputThreads();
  ASSERT_EQ(threads.size(), 1);
  // All may have been there before it first had to wait.
  ASSERT_TRUE(kvltest::waitUntil([&] { return sleepsOf(threads) > 0; }));
  // It looks a few times more after the bytes.
  EXPECT_TRUE(kvltest::waitUntil([&] {
    const long before = sleepsOf(threads);
    EXPECT_FALSE(Semaphore().waitFor(std::chrono::milliseconds(200)));
    return sleepsOf(threads) == before;
  }));
}

TEST_F(LifetimeTest, CancellingFromInsideADeliveryEndsDeliveries) {
  delegate->onData = [](const std::shared_ptr<DataTask>& task) { task->cancel(); };
  session->dataTask(request)->resume();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
  EXPECT_EQ(delegate->chunks().size(), 1U);
  EXPECT_EQ(delegate->completions(), 1);
}

TEST_F(LifetimeTest, CancellingFromOtherThreadsCompletesOnce) {
  for (int round = 0; round < 50; ++round) {
    OutcomeBox box;
    const auto task = session->dataTask(streamRequest, box.handler());
    const auto cancelling = [task] { task->cancel(); };
    auto first = std::async(std::launch::async, cancelling);
    auto second = std::async(std::launch::async, cancelling);
    task->resume();
    EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  }
}

TEST_F(LifetimeTest, CancellingEndsTheWaitForAChallenge) {
  struct Cancelling : URLSessionDelegate {
    void didReceiveChallenge(URLSession&, const Challenge&, ChallengeHandler handler) override {
      kept = std::move(handler);
      task->cancel();
    }
    ChallengeHandler kept;
    std::shared_ptr<DataTask> task;
  };
  const auto cancelling = std::make_shared<Cancelling>();
  const auto other = URLSession::create(anyPeers(), cancelling);
  OutcomeBox box;
  cancelling->task = other->dataTask(request, box.handler());
  cancelling->task->resume();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
}

// Cancels a task as soon as the server asks who it is.
class ShyDelegate final : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& session, const Challenge& challenge,
                           ChallengeHandler completionHandler) override {
    const bool asksWho = challenge.protectionSpace.authenticationMethod ==
                         NSURLAuthenticationMethodClientCertificate;
    if (const auto task = asksWho ? std::exchange(cancelled, nullptr) : nullptr) {
      kept = std::move(completionHandler);
      return task->cancel();
    }
    RecordingDelegate::didReceiveChallenge(session, challenge, std::move(completionHandler));
  }
  std::shared_ptr<DataTask> cancelled;
  ChallengeHandler kept;
};

// Another request could get it, which would then be refused although there is an identity.
TEST_F(LifetimeTest, ARequestThatIsCancelledWhenAskedForAnIdentityLeavesNoConnectionBehind) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    Mutex mutex;
    std::vector<std::string> subjects;
    const auto answer = answering(httpResponse("hello"));
    std::optional<TestTLSServer> service;
    service.emplace(TestServerOptions{.identity = &server(),
                                      .tlsVersion = version,
                                      .clientAuthority = &root(),
                                      .servesAnyClient = true},
                    [&](TestPeer& peer) {
                      {
                        const MutexLock lock(mutex);
                        subjects.push_back(peer.clientSubject());
                      }
                      answer(peer);
                    });
    const auto shy = std::make_shared<ShyDelegate>();
    shy->anchor = delegate->anchor;
    shy->credential = delegate->credential;
    const auto other = URLSession::create(anyPeers(), shy);
    OutcomeBox first;
    OutcomeBox second;
    const auto cancelled = other->dataTask(URLRequest(service->url("127.0.0.1")), first.handler());
    shy->cancelled = cancelled;
    cancelled->resume();
    other->dataTask(URLRequest(service->url("127.0.0.1")), second.handler())->resume();
    EXPECT_EQ(first.wait().code(), NSURLErrorCancelled);
    EXPECT_EQ(second.wait().text(), "hello");
    // Each handshake has come to its end, one way or the other.
    EXPECT_TRUE(kvltest::waitUntil([&] {
      const MutexLock lock(mutex);
      return service->ended() > 0 || subjects.size() > 1;
    }));
    service.reset();
    ASSERT_EQ(subjects.size(), 1U) << "a handshake without an identity was finished";
    EXPECT_NE(subjects[0], "");
  }
}

TEST_F(LifetimeTest, ASessionObjectThatIsLetGoFinishesItsTasks) {
  OutcomeBox box;
  session->dataTask(request, box.handler())->resume();
  session.reset();
  EXPECT_EQ(box.wait().text(), "hello");
}

TEST_F(LifetimeTest, ASessionObjectMayGoInsideItsOwnCompletion) {
  for (int round = 0; round < 20; ++round) {
    auto other =
        std::make_shared<std::shared_ptr<URLSession>>(URLSession::create(anyPeers(), delegate));
    std::promise<void> done;
    (*other)
        ->dataTask(request,
                   [other, &done](const auto&, const auto&, const auto&) {
                     other->reset();
                     done.set_value();
                   })
        ->resume();
    done.get_future().get();
  }
}

// Lets go of its session object where the test says.
class LettingGoDelegate final : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& asking, const Challenge& challenge,
                           ChallengeHandler completionHandler) override {
    if (whenAsked) whenAsked(held);
    RecordingDelegate::didReceiveChallenge(asking, challenge, std::move(completionHandler));
  }
  void didReceiveData(URLSession& receiving, const std::shared_ptr<DataTask>& task,
                      const Data& data) override {
    if (whenDelivered) whenDelivered(held);
    RecordingDelegate::didReceiveData(receiving, task, data);
  }
  using Place = std::function<void(std::shared_ptr<URLSession>&)>;
  Place whenAsked;
  Place whenDelivered;
  std::shared_ptr<URLSession> held;
};

TEST_F(LifetimeTest, ASessionObjectMayGoWhereverItCallsItsDelegate) {
  using Place = LettingGoDelegate::Place;
  const Place here = [](auto& held) { held.reset(); };
  const Place elsewhere = [](auto& held) {
    std::thread([last = std::exchange(held, nullptr)]() mutable { last.reset(); }).join();
  };
  for (const auto& [asked, delivered] :
       {std::pair{here, Place()}, {elsewhere, Place()}, {Place(), here}, {Place(), elsewhere}}) {
    const auto letting = std::make_shared<LettingGoDelegate>();
    letting->anchor = delegate->anchor;
    letting->held = URLSession::create(anyPeers(), letting);
    letting->whenAsked = asked;
    letting->whenDelivered = delivered;
    const std::weak_ptr<URLSession> watch = letting->held;
    letting->held->dataTask(request)->resume();
    EXPECT_FALSE(letting->waitForCompletion());
    EXPECT_EQ(letting->text(), "hello");
    EXPECT_TRUE(kvltest::waitUntil([&] { return watch.expired(); }));
  }
}

TEST_F(LifetimeTest, AnAnswerToAChallengeMayComeWhenEverythingElseHasGone) {
  const auto shy = std::make_shared<ShyDelegate>();
  shy->anchor = delegate->anchor;
  shy->credential = delegate->credential;
  std::weak_ptr<URLSession> watch;
  {
    const TestTLSServer asking({.identity = &server(), .clientAuthority = &root()},
                               answering(httpResponse("hello")));
    auto other = URLSession::create(anyPeers(), shy);
    watch = other;
    OutcomeBox box;
    shy->cancelled = other->dataTask(URLRequest(asking.url("127.0.0.1")), box.handler());
    shy->cancelled->resume();
    other.reset();
    EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
    EXPECT_TRUE(kvltest::waitUntil([&] { return watch.expired(); }));
  }
  shy->kept(ChallengeDisposition::useCredential, shy->credential);
  shy->kept(ChallengeDisposition::useCredential, shy->credential);
}

TEST_F(LifetimeTest, ADelegateMayGoWhileATaskRuns) {
  session->dataTask(streamRequest)->resume();
  delegate->waitForBytes(5);
  delegate.reset();
  OutcomeBox box;
  const auto task = session->dataTask(streamRequest, box.handler());
  task->resume();
  session->invalidateAndCancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
}

TEST_F(LifetimeTest, InvalidatingRefusesNewTasksAndFinishesRunningOnes) {
  OutcomeBox running;
  OutcomeBox late;
  const auto suspended = session->dataTask(request, late.handler());
  session->dataTask(request, running.handler())->resume();
  session->finishTasksAndInvalidate();
  suspended->resume();
  EXPECT_EQ(late.wait().code(), NSURLErrorCancelled);
  EXPECT_EQ(running.wait().text(), "hello");
  EXPECT_EQ(load(*session, request).code(), NSURLErrorCancelled);
}

TEST_F(LifetimeTest, InvalidatingWithoutTasksEndsTheThreadThatWaitsForMore) {
  // Those of earlier session objects end by themselves.
  ASSERT_TRUE(kvltest::waitUntil([] { return inputThreads().empty(); }));
  EXPECT_EQ(load(*session, request).text(), "hello");
  EXPECT_EQ(inputThreads().size(), 1);
  session->finishTasksAndInvalidate();
  EXPECT_TRUE(kvltest::waitUntil([] { return inputThreads().empty(); }));
}

TEST_F(LifetimeTest, InvalidatingAndCancellingEndsRunningTasks) {
  session->dataTask(streamRequest)->resume();
  delegate->waitForBytes(5);
  session->invalidateAndCancel();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
}

TEST_F(LifetimeTest, AProcessMayExitWhileTransfersRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        session->dataTask(streamRequest)->resume();
        delegate->waitForBytes(5);
        exitsEarly = true;
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

// Answers the server's challenge when the process begins to exit, so that the next one comes then.
class AnsweringAtExit : public RecordingDelegate {
 public:
  void didReceiveChallenge(URLSession& asking, const Challenge& challenge,
                           ChallengeHandler completionHandler) override {
    if (challenge.protectionSpace.authenticationMethod != NSURLAuthenticationMethodServerTrust)
      return RecordingDelegate::didReceiveChallenge(asking, challenge, completionHandler);
    RecordingDelegate::didReceiveChallenge(
        asking, challenge,
        [completionHandler](ChallengeDisposition disposition, const CredentialRef& chosen) {
          answer() = [=] { completionHandler(disposition, chosen); };
          answerIsKept().signal();
        });
  }
  static std::function<void()>& answer() {
    static NoDestructor<std::function<void()>> kept;
    return *kept;
  }
  static Semaphore& answerIsKept() {
    static NoDestructor<Semaphore> kept;
    return *kept;
  }
};

void exitInAHandshake(const std::shared_ptr<RecordingDelegate>& delegate, const std::string& url) {
  static constexpr std::chrono::milliseconds kWithoutWaiting{1500};
  static std::chrono::steady_clock::time_point began;
  std::atexit([] {
    if (std::chrono::steady_clock::now() - began > kWithoutWaiting) _exit(1);
  });
  core::addExitStep([] {
    began = std::chrono::steady_clock::now();
    AnsweringAtExit::answer()();
  });
  const auto session =
      urlloading::createForFramework(URLSessionConfiguration::ephemeral(), delegate);
  session->dataTask(URLRequest(url))->resume();
  AnsweringAtExit::answerIsKept().wait();
  exitsEarly = true;
  std::exit(0);
}

TEST_F(LifetimeTest, AnExitDoesNotWaitForAChallengeThatNobodyAnswers) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const TestTLSServer asking({.identity = &server(), .clientAuthority = &root()},
                             answering(httpResponse("hello")));
  const auto answersAtExit = std::make_shared<AnsweringAtExit>();
  answersAtExit->anchor = root().certificateRef();
  EXPECT_EXIT(exitInAHandshake(answersAtExit, asking.url("127.0.0.1")),
              ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kvl::testing
