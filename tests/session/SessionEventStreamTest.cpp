#include "tests/session/SessionFixture.h"

namespace {

using namespace kvltest;
using namespace std::chrono_literals;

constexpr std::string_view kThreeEvents =
    "event: a\nid: 1\n\nevent: b\ndata: two\n\nevent: c\nid: 3\n\n";

class SessionEventStreamTest : public SessionFixture {
 protected:
  [[nodiscard]] std::shared_ptr<FakeDataTask> streamTask() const {
    return std::dynamic_pointer_cast<FakeDataTask>(session->eventStream()->task());
  }
  void receive(std::string_view bytes) {
    session->didReceiveData(*loader, streamTask(), kvl::Data::fromText(bytes));
  }
  void complete(const std::optional<kvl::Error>& error) {
    const auto task = streamTask();
    task->complete(std::nullopt, nullptr, error);
    session->didCompleteWithError(*loader, task, error);
  }
  // Establishes and opens the stream on the fake HTTPS session object.
  void open(const std::string& source = "events") {
    create();
    establish();
    session->setEventStreamSource(source);
  }
};

TEST_F(SessionEventStreamTest, SourceBeforeTheFirstNotarisationOpensNothingYet) {
  create();
  session->setEventStreamSource("events");
  EXPECT_EQ(log.lines().back(), "establishing event stream: events");
  EXPECT_EQ(session->eventStream()->task(), nullptr);
  EXPECT_EQ(session->eventSource(), "events");
}

TEST_F(SessionEventStreamTest, NotarisationOpensTheStream) {
  create();
  session->setEventStreamSource("events");
  notary->answer(signatureFor("https://127.0.0.1:9/base/"));
  const auto task = session->eventStream()->task();
  ASSERT_NE(task, nullptr);
  EXPECT_EQ(task->originalRequest().urlText(), "https://127.0.0.1:9/base/events");
  session->disconnectAfterError();
}

TEST_F(SessionEventStreamTest, RequestAsksForEventsWithTheLongTimeOut) {
  open();
  const auto& request = streamTask()->originalRequest();
  EXPECT_EQ(request.method(), "GET");
  EXPECT_EQ(request.headers().find("Accept"), "text/event-stream");
  EXPECT_EQ(request.headers().find("Last-Event-ID"), std::nullopt);
  EXPECT_EQ(request.contentKind(), kvl::ContentKind::eventStream);
  EXPECT_EQ(request.timeoutInterval(), 3600s);
  EXPECT_EQ(KVLEventStreamStateTimeoutInterval, 3600.0);
  EXPECT_FALSE(streamTask()->hasHandler());
}

TEST_F(SessionEventStreamTest, PrefersIncrementalDeliveryFrom113On) {
  open();
  EXPECT_TRUE(streamTask()->prefersIncrementalDelivery());
  kvl::setSystemVersion({11, 2});
  session->setEventStreamSource("others");
  EXPECT_FALSE(streamTask()->prefersIncrementalDelivery());
}

TEST_F(SessionEventStreamTest, SameSourceTwiceOpensOnce) {
  open();
  session->setEventStreamSource("events");
  EXPECT_EQ(loader->tasks().size(), 1U);
}

TEST_F(SessionEventStreamTest, OtherSourceCancelsAndOpensWithTheOldIdentifier) {
  open();
  receive(kThreeEvents);
  const auto first = streamTask();
  session->setEventStreamSource("others");
  EXPECT_EQ(first->state(), kvl::DataTask::State::canceling);
  EXPECT_NE(streamTask(), first);
  EXPECT_EQ(streamTask()->originalRequest().headers().find("Last-Event-ID"), "3");
}

TEST_F(SessionEventStreamTest, EmptyIdentifierIsSentAsAnEmptyValue) {
  open();
  receive("event: a\nid:\n\n");
  session->setEventStreamSource("others");
  EXPECT_EQ(streamTask()->originalRequest().headers().find("Last-Event-ID"), "");
}

TEST_F(SessionEventStreamTest, IdentifierThatHTTPForbidsIsLeftOut) {
  open();
  receive("event: a\nid: x\ry\n\n");
  EXPECT_EQ(session->eventStream()->lastEventID(), "x\ry");
  session->setEventStreamSource("others");
  EXPECT_EQ(streamTask()->originalRequest().headers().find("Last-Event-ID"), std::nullopt);
}

TEST_F(SessionEventStreamTest, EmptySourceOpensNothingAndSaysSoOnce) {
  create();
  establish();
  queue->advance(800s);
  establish();
  EXPECT_EQ(log.count("no event stream source is set"), 1U);
  EXPECT_EQ(log.count("establishing event stream"), 0U);
  EXPECT_EQ(session->eventStream()->task(), nullptr);
}

TEST_F(SessionEventStreamTest, SourceThatIsNoURLOpensNothing) {
  open("no url");
  EXPECT_EQ(log.lines().back(), "event stream source is no URL: no url");
  EXPECT_TRUE(loader->tasks().empty());
}

TEST_F(SessionEventStreamTest, AbsoluteSourceThatRunsIsLeftAlone) {
  open("https://127.0.0.1:4321/base/events");
  const auto task = streamTask();
  session->eventStream()->streamFromURL("https://127.0.0.1:4321/base/events", *session);
  EXPECT_EQ(streamTask(), task);
  task->complete(std::nullopt, nullptr, std::nullopt);
  session->eventStream()->streamFromURL("https://127.0.0.1:4321/base/events", *session);
  EXPECT_NE(streamTask(), task);
}

TEST_F(SessionEventStreamTest, RelativeSourceIsAlwaysReopened) {
  open();
  const auto task = streamTask();
  session->eventStream()->streamFromURL("events", *session);
  EXPECT_NE(streamTask(), task);
  EXPECT_EQ(task->state(), kvl::DataTask::State::canceling);
}

TEST_F(SessionEventStreamTest, ChunkWithThreeEventsSendsOneMessage) {
  open();
  receive(kThreeEvents);
  ASSERT_EQ(recorder->batches.size(), 1U);
  ASSERT_EQ(recorder->batches[0].size(), 3U);
  EXPECT_EQ(recorder->batches[0][1]->description(), "event:b,data:two,id:(null)");
  EXPECT_EQ(recorder->sender, session.get());
  EXPECT_EQ(session->eventStream()->lastEventID(), "3");
}

TEST_F(SessionEventStreamTest, ChunkWithoutACompleteEventSendsNothing) {
  open();
  receive("event: a\n");
  EXPECT_TRUE(recorder->batches.empty());
}

TEST_F(SessionEventStreamTest, BytesOfOtherTasksAndReplacedTasksAreIgnored) {
  open();
  const auto replaced = streamTask();
  session->setEventStreamSource("others");
  session->didReceiveData(*loader, replaced, kvl::Data::fromText(kThreeEvents));
  EXPECT_TRUE(recorder->batches.empty());
  session->didCompleteWithError(*loader, replaced,
                                kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  queue->runDue();
  EXPECT_EQ(loader->tasks().size(), 2U);
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
}

TEST_F(SessionEventStreamTest, WithoutADelegateBytesAreDropped) {
  open();
  session->setDelegate({});
  receive("event: a\nhalf a line");
  EXPECT_EQ(session->eventStream()->data(), std::nullopt);
}

TEST_F(SessionEventStreamTest, TimeOutAndCancellationReopenAtOnceWithoutALogLine) {
  for (const auto code : {kvl::NSURLErrorTimedOut, kvl::NSURLErrorCancelled}) {
    open();
    receive(kThreeEvents);
    const auto first = streamTask();
    const auto lines = log.count("event stream closed");
    (void)queue->takeDelays();
    complete(kvl::Error(kvl::NSURLErrorDomain, code));
    EXPECT_EQ(queue->takeDelays(), std::vector{0.0});
    queue->runDue();
    EXPECT_NE(streamTask(), first);
    EXPECT_EQ(streamTask()->originalRequest().urlText(), first->originalRequest().urlText());
    EXPECT_EQ(streamTask()->originalRequest().headers().find("Last-Event-ID"), "3");
    EXPECT_EQ(log.count("event stream closed"), lines);
    EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  }
}

TEST_F(SessionEventStreamTest, ReopeningGivesWayToAnotherStream) {
  open();
  complete(kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut));
  session->setEventStreamSource("others");  // before the reopening has run
  const auto other = streamTask();
  queue->runDue();
  EXPECT_EQ(streamTask(), other);
}

TEST_F(SessionEventStreamTest, AnyOtherEndDisconnectsAndNotarisesASecondLater) {
  struct End {
    std::optional<kvl::Error> error;
    std::string line;
  };
  const kvl::Error network(kvl::NSURLErrorDomain, kvl::NSURLErrorNetworkConnectionLost);
  const kvl::Error other(kvl::NSPOSIXErrorDomain, 22);
  const kvl::Error foreign("another.domain", kvl::NSURLErrorTimedOut);
  const End ends[] = {
      {network, "event stream closed with unexpected network error: " + network.description()},
      {other, "event stream closed with unexpected error: " + other.description()},
      {foreign, "event stream closed with unexpected error: " + foreign.description()},
      {std::nullopt, ""},
  };
  for (const auto& [error, line] : ends) {
    open();
    const auto calls = notary->calls();
    const auto lines = log.lines().size();
    complete(error);
    EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
    EXPECT_EQ(session->eventStream()->task(), nullptr);
    EXPECT_EQ(session->signature(), nullptr);
    if (error) {
      EXPECT_EQ(log.lines().back(), line);
    } else {
      EXPECT_EQ(log.lines().size(), lines);
    }
    queue->advance(1s);
    EXPECT_EQ(notary->calls(), calls + 1);
    notary->drop();
    queue->dropPending();
  }
}

TEST_F(SessionEventStreamTest, RenewalReopensARelativeSourceWithTheLastIdentifier) {
  open();
  receive(kThreeEvents);
  const auto first = streamTask();
  queue->advance(800s);
  notary->answer(signatureFor("https://127.0.0.1:9/base/"));
  EXPECT_EQ(first->state(), kvl::DataTask::State::canceling);
  EXPECT_NE(session->session(), loader);
  const auto task = session->eventStream()->task();
  ASSERT_NE(task, nullptr);
  EXPECT_NE(task, first);
  EXPECT_EQ(task->originalRequest().headers().find("Last-Event-ID"), "3");
  session->disconnectAfterError();
}

TEST_F(SessionEventStreamTest, RenewalLeavesAnAbsoluteSourceThatRunsAlone) {
  open("https://127.0.0.1:4321/base/events");
  const auto first = streamTask();
  queue->advance(800s);
  notary->answer(signatureEnding(queue->wallTime().adding(1000)));
  EXPECT_EQ(streamTask(), first);
}

TEST_F(SessionEventStreamTest, StreamThatARenewalLeftAloneTellsOfTheIdentityBefore) {
  open("https://127.0.0.1:4321/base/events");
  const auto first = streamTask();
  queue->advance(800s);
  const auto renewed = signatureEnding(queue->wallTime().adding(1000));
  notary->answer(renewed);
  ASSERT_EQ(streamTask(), first);
  complete(notarisationError());
  EXPECT_EQ(log.count("event stream closed with unexpected network error"), 1U);
  queue->runDue();
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(session->signature(), renewed);
  EXPECT_NE(streamTask(), nullptr);
  EXPECT_NE(streamTask(), first);
}

TEST_F(SessionEventStreamTest, StreamThatARenewalLeftAloneDisconnectsWhenItEndsOtherwise) {
  for (const auto& error :
       {std::optional<kvl::Error>(), std::optional(kvl::Error(kvl::NSURLErrorDomain, -1005))}) {
    open("https://127.0.0.1:4321/base/events");
    queue->advance(800s);
    notary->answer(signatureEnding(queue->wallTime().adding(1000)));
    complete(error);
    EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
    letGoOfTheSession();
  }
}

TEST_F(SessionEventStreamTest, OnAnInvalidatedHTTPSSessionObjectNothingIsOpenedAgainAndAgain) {
  open();
  const auto opened = log.count("establishing event stream");
  loader->invalidateAndCancel();
  complete(kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  (void)queue->takeDelays();
  queue->runDue();
  EXPECT_EQ(session->state(), KVLSessionStateDisconnected);
  EXPECT_EQ(session->session(), nullptr);
  EXPECT_EQ(log.count("establishing event stream"), opened);
  EXPECT_EQ(queue->takeDelays(), std::vector{1.0});
  queue->advance(1s);
  EXPECT_EQ(notary->calls(), 2U);
}

TEST_F(SessionEventStreamTest, AnotherHTTPSSessionObjectMayTakeTheInvalidatedOnesPlace) {
  open();
  loader->invalidateAndCancel();
  complete(kvl::Error(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled));
  session->setSession(std::make_shared<FakeURLSession>());
  queue->runDue();
  EXPECT_EQ(session->state(), KVLSessionStateEstablished);
  EXPECT_EQ(streamTask()->state(), kvl::DataTask::State::running);
}

TEST_F(SessionEventStreamTest, LinesAreAsLongAsTheHTTPSSessionObjectWasConfiguredFor) {
  loader->settings.maximumEventLineBytes = 10;
  open();
  receive("event: a\n\nevent: long\n\nevent: b\n\n");
  ASSERT_EQ(recorder->batches.size(), 1U);
  EXPECT_EQ(recorder->batches[0].size(), 2U);
  EXPECT_EQ(log.lines().back(),
            "ignoring event-source line of more than 10 bytes: event: long\u2026");
}

TEST_F(SessionEventStreamTest, CancelKeepsTheIdentifierAndForgetsTheRest) {
  open();
  receive("event: a\nid: 1\n\nrest");
  const auto stream = session->eventStream();
  const auto task = streamTask();
  stream->setEvent(std::make_shared<KVLEvent>());
  ASSERT_EQ(stream->data()->text(), "rest");
  stream->cancel();
  EXPECT_EQ(task->state(), kvl::DataTask::State::canceling);
  EXPECT_EQ(stream->task(), nullptr);
  EXPECT_EQ(stream->data(), std::nullopt);
  EXPECT_EQ(stream->event(), nullptr);
  EXPECT_EQ(stream->lastEventID(), "1");
  // What comes next begins afresh.
  session->setEventStreamSource("others");
  receive("event: b\nid: 2\n\n");
  EXPECT_EQ(stream->lastEventID(), "2");
  EXPECT_EQ(recorder->batches.size(), 2U);
}

}  // namespace
