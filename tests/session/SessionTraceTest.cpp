#include "tests/session/SessionFixture.h"
#include "tests/support/TraceCapture.h"

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using TraceKinds = std::vector<kvl::TraceRecord::Kind>;

class SessionTraceTest : public SessionFixture {
 protected:
  [[nodiscard]] std::shared_ptr<FakeDataTask> streamTask() const {
    return std::dynamic_pointer_cast<FakeDataTask>(session->eventStream()->task());
  }

  // The trace is the process's: requests of a session before may still end.
  [[nodiscard]] TraceKinds ofNotarisations() const {
    auto kinds = trace.kinds();
    std::erase_if(kinds, [](auto kind) { return kind > kvl::TraceRecord::Kind::retryScheduled; });
    return kinds;
  }

  const TraceCapture trace;
};

TEST_F(SessionTraceTest, TellsANotarisationAndTheNext) {
  create();
  EXPECT_EQ(ofNotarisations(), (TraceKinds{kvl::TraceRecord::Kind::notarisationBegan}));
  establish();
  EXPECT_EQ(ofNotarisations(), (TraceKinds{kvl::TraceRecord::Kind::notarisationBegan,
                                           kvl::TraceRecord::Kind::notarisationEnded,
                                           kvl::TraceRecord::Kind::retryScheduled}));
  const auto ended = trace.of(kvl::TraceRecord::Kind::notarisationEnded).at(0);
  EXPECT_FALSE(ended.error);
  EXPECT_GT(ended.record.duration, 0ns);
  EXPECT_EQ(trace.of(kvl::TraceRecord::Kind::retryScheduled).at(0).record.duration, 800s);
}

TEST_F(SessionTraceTest, TellsWhyANotarisationFailed) {
  create();
  notary->answer(nullptr, recoverableError());
  const auto ended = trace.of(kvl::TraceRecord::Kind::notarisationEnded);
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].error, recoverableError());
  EXPECT_EQ(trace.of(kvl::TraceRecord::Kind::retryScheduled).at(0).record.duration, 5s);
}

TEST_F(SessionTraceTest, TellsTheStreamsLife) {
  create();
  establish();
  session->setEventStreamSource("events?since=1");
  const auto task = streamTask();
  const auto bytes = kvl::Data::fromText("event: a\n\nevent: b\n\n");
  session->didReceiveData(*loader, task, bytes);
  task->complete(std::nullopt, nullptr, finalError());
  session->didCompleteWithError(*loader, task, finalError());

  const auto opened = trace.of(kvl::TraceRecord::Kind::streamOpened);
  ASSERT_EQ(opened.size(), 1U);
  EXPECT_TRUE(opened[0].path.ends_with("/events")) << opened[0].path;
  EXPECT_EQ(opened[0].record.task, task->taskIdentifier());
  const auto arrived = trace.of(kvl::TraceRecord::Kind::eventsArrived);
  ASSERT_EQ(arrived.size(), 1U);
  EXPECT_EQ(arrived[0].record.count, 2);
  EXPECT_EQ(arrived[0].record.bytes, static_cast<std::int64_t>(bytes.size()));
  const auto ended = trace.of(kvl::TraceRecord::Kind::streamEnded);
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].error, finalError());
  EXPECT_EQ(ended[0].path, opened[0].path);
}

TEST_F(SessionTraceTest, AReplacedStreamEndsAsWell) {
  create();
  establish();
  session->setEventStreamSource("events");
  const auto first = streamTask();
  session->setEventStreamSource("others");
  const kvl::Error cancelled(kvl::NSURLErrorDomain, kvl::NSURLErrorCancelled);
  session->didCompleteWithError(*loader, first, cancelled);
  EXPECT_EQ(trace.of(kvl::TraceRecord::Kind::streamOpened).size(), 2U);
  ASSERT_EQ(trace.of(kvl::TraceRecord::Kind::streamEnded).size(), 1U);
  EXPECT_EQ(trace.of(kvl::TraceRecord::Kind::streamEnded)[0].record.task, first->taskIdentifier());
}

TEST_F(SessionTraceTest, OtherRequestsAreNoStreams) {
  create();
  establish();
  const auto task = session->request(kvl::URLRequest("x"), nullptr);
  session->didCompleteWithError(*loader, task, finalError());
  EXPECT_TRUE(trace.of(kvl::TraceRecord::Kind::streamEnded).empty());
}

}  // namespace
