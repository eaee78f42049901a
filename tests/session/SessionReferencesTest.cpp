// What keeps a session and its parts alive while they are used, whoever lets go of them meanwhile.
#include "tests/session/SessionFixture.h"

#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

class SessionReferencesTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
  }

  // Takes the session from everything but what the test is about.
  [[nodiscard]] std::weak_ptr<KVLSession> letGo() {
    std::weak_ptr<KVLSession> watch = session;
    session.reset();
    return watch;
  }
};

TEST_F(SessionReferencesTest, AnOutstandingNotarisationKeepsTheSession) {
  session->enqueueNotarisation();
  queue->dropPending();
  const auto watch = letGo();
  ASSERT_FALSE(watch.expired());
  notary->answer(nullptr);
  EXPECT_EQ(queue->pendingCount(), 1U) << "its completion did not run";
  queue->dropPending();
  EXPECT_TRUE(watch.expired());
}

// A notary that loses its requests lets go of the session while a timer of the session's runs.
TEST_F(SessionReferencesTest, ASessionMayGoInsideItsOwnTimer) {
  class Losing final : public KVLNotary {
   public:
    Losing() : KVLNotary(WithoutKeys{}) {}
    void notariseWithCompletionHandler(CompletionHandler) override { ++calls; }
    int calls = 0;
  };
  const auto losing = std::make_shared<Losing>();
  session->setNotary(losing);
  const auto watch = letGo();
  ASSERT_FALSE(watch.expired());
  queue->advance(800s);
  EXPECT_EQ(losing->calls, 1);
  EXPECT_TRUE(watch.expired());
}

// A host's own notary may do what it likes as it goes.
TEST_F(SessionReferencesTest, ANotaryThatIsReplacedGoesWithNoLockHeld) {
  class Ending final : public KVLNotary {
   public:
    explicit Ending(std::weak_ptr<KVLSession> ended)
        : KVLNotary(WithoutKeys{}), ended_(std::move(ended)) {}
    Ending(const Ending&) = delete;
    Ending& operator=(const Ending&) = delete;
    ~Ending() override {
      if (const auto session = ended_.lock()) session->end();
    }
    void notariseWithCompletionHandler(CompletionHandler) override {}

   private:
    const std::weak_ptr<KVLSession> ended_;
  };
  session->setNotary(std::make_shared<Ending>(session));
  session->setNotary(notary);
  EXPECT_TRUE(session->isEnded());
}

TEST_F(SessionReferencesTest, ARequestKeepsTheSession) {
  std::optional<kvl::Error> received;
  session->request(kvl::URLRequest("a"), [&](auto&&, auto&&, std::optional<kvl::Error> error) {
    received = std::move(error);
  });
  queue->dropPending();
  const auto watch = letGo();
  ASSERT_FALSE(watch.expired());
  loader->tasks().back()->fail(notarisationError());
  EXPECT_EQ(received, notarisationError());
  EXPECT_EQ(log.count("notarisation error from request; enqueuing reconnection"), 1U);
  queue->dropPending();
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionReferencesTest, ASessionMayGoInsideTheHandlerOfItsRequest) {
  queue->dropPending();
  const std::weak_ptr<KVLSession> watch = session;
  session->request(kvl::URLRequest("a"), [this](auto&&...) {
    session.reset();
    queue->dropPending();
  });
  loader->tasks().back()->fail(kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut));
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionReferencesTest, AReopeningKeepsTheSessionTheStreamAndTheTask) {
  session->setEventStreamSource("events");
  queue->dropPending();
  const auto stream = session->eventStream();
  auto task = loader->tasks().back();
  task->complete(std::nullopt, nullptr, std::nullopt);
  session->didCompleteWithError(*loader, task,
                                kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut));
  const auto before = task->taskIdentifier();
  const std::weak_ptr<kvl::DataTask> taskWatch = std::exchange(task, nullptr);
  loader->dropTasks();
  const auto watch = letGo();
  ASSERT_FALSE(watch.expired());
  ASSERT_FALSE(taskWatch.expired());
  queue->runDue();
  EXPECT_TRUE(watch.expired());
  ASSERT_EQ(loader->tasks().size(), 1U);
  EXPECT_GT(loader->tasks().back()->taskIdentifier(), before);
  // With the session its stream ended.
  EXPECT_EQ(loader->tasks().back()->state(), kvl::DataTask::State::canceling);
}

TEST_F(SessionReferencesTest, ASessionThatGoesEndsItsStream) {
  session->setEventStreamSource("events");
  const auto task = loader->tasks().back();
  queue->dropPending();
  ASSERT_TRUE(letGo().expired());
  EXPECT_EQ(task->state(), kvl::DataTask::State::canceling);
}

TEST_F(SessionReferencesTest, AStreamKeepsItsTask) {
  session->setEventStreamSource("events");
  const std::weak_ptr<kvl::DataTask> task = session->eventStream()->task();
  loader->dropTasks();
  EXPECT_FALSE(task.expired());
  session->eventStream()->cancel();
  EXPECT_TRUE(task.expired());
}

// Lets go of itself and of the session while it runs.
class LeavingDelegate final : public KVLSessionDelegate {
 public:
  void eventStream(KVLSession& session,
                   const std::vector<std::shared_ptr<KVLEvent>>& events) override {
    session.setDelegate({});
    self.reset();
    ++calls;
    last = events.back()->identifier().value_or("none");
    ended();
  }

  std::shared_ptr<LeavingDelegate> self;
  int calls = 0;
  std::string last;
  std::function<void()> ended;
};

TEST_F(SessionReferencesTest, ADelegateIsKeptWhileItRuns) {
  session->setEventStreamSource("events");
  auto delegate = std::make_shared<LeavingDelegate>();
  const std::weak_ptr<LeavingDelegate> watch = delegate;
  bool wasKept = false;
  delegate->ended = [&] { wasKept = !watch.expired(); };
  delegate->self = delegate;
  session->setDelegate(delegate);
  delegate.reset();
  session->didReceiveData(*loader, session->eventStream()->task(),
                          kvl::Data::fromText("event: a\nid: 1\n\n"));
  EXPECT_TRUE(wasKept);
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionReferencesTest, ANotaryIsKeptWhileItIsAsked) {
  auto asked = std::make_shared<FakeNotary>();
  const std::weak_ptr<KVLNotary> watch = asked;
  bool wasKept = false;
  asked->whenAsked = [&] {
    session->setNotary(notary);
    wasKept = !watch.expired();
  };
  session->setNotary(std::exchange(asked, nullptr));
  session->enqueueNotarisation();
  EXPECT_TRUE(wasKept);
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionReferencesTest, ASectionKeepsTheSignatureThatItHasLocked) {
  const std::weak_ptr<KVLNotarySignature> watch = session->signature();
  bool wasKept = false;
  loader->whenItFinishes = [&] { wasKept = !watch.expired(); };
  session->disconnectAfterError();
  EXPECT_TRUE(wasKept);
  EXPECT_TRUE(watch.expired());
}

TEST_F(SessionReferencesTest, ARequestKeepsTheHTTPSSessionObjectThatMakesItsTask) {
  auto leaving = std::make_shared<FakeURLSession>();
  const std::weak_ptr<kvl::URLSession> watch = leaving;
  bool wasKept = false;
  leaving->whenATaskIsMade = [&] {
    session->setSession(nullptr);
    wasKept = !watch.expired();
  };
  session->setSession(std::exchange(leaving, nullptr));
  session->request(kvl::URLRequest("a"), [](auto&&...) {});
  EXPECT_TRUE(wasKept);
  EXPECT_TRUE(watch.expired());
}

// Its monitor is locked until the section ends.
TEST_F(SessionReferencesTest, AForcedDisconnectKeepsTheStreamThatItLocked) {
  std::weak_ptr<KVLEventStreamState> watch = session->eventStream();
  bool wasKept = false;
  loader->whenItFinishes = [&] {
    session->setEventStream(std::make_shared<KVLEventStreamState>());
    wasKept = !watch.expired();
  };
  session->disconnectAfterError();
  EXPECT_TRUE(wasKept);
  EXPECT_TRUE(watch.expired());
}

}  // namespace
