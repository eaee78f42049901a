#include "tests/support/TraceCapture.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Trace.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

namespace kvl::testing {
namespace {

using kvltest::KeptTrace;
using kvltest::TraceCapture;
using TraceKinds = std::vector<TraceRecord::Kind>;

class LoadingTraceTest : public URLSessionTest {
 protected:
  // Of this test's tasks alone: others may still end.
  const TraceCapture trace{session->dataTask(URLRequest("https://a/"))->taskIdentifier()};
};

TEST_F(LoadingTraceTest, TellsEveryStep) {
  const TestTLSServer peer({.identity = &server()},
                           answering(httpResponse("hello", "404 Missing")));
  (void)load(*session, URLRequest(peer.url("localhost", "/path")));
  EXPECT_EQ(trace.kinds(),
            (TraceKinds{TraceRecord::Kind::requestBegan, TraceRecord::Kind::connected,
                        TraceRecord::Kind::answered, TraceRecord::Kind::requestEnded}));
  for (const KeptTrace& kept : trace.all()) {
    EXPECT_EQ(kept.path, "/path");
    EXPECT_EQ(kept.record.task, trace.all().front().record.task);
    EXPECT_FALSE(kept.error);
  }
  const auto ended = trace.all().back().record;
  EXPECT_EQ(ended.status, 404);
  EXPECT_EQ(ended.bytes, 5);
  EXPECT_EQ(trace.of(TraceRecord::Kind::answered).front().record.status, 404);
}

TEST_F(LoadingTraceTest, TimesFollowOneAnother) {
  const TestTLSServer peer({.identity = &server()}, answering(httpResponse("hello")));
  (void)load(*session, URLRequest(peer.url("localhost")));
  const auto connected = trace.of(TraceRecord::Kind::connected).at(0).record;
  const auto answered = trace.of(TraceRecord::Kind::answered).at(0).record;
  const auto ended = trace.of(TraceRecord::Kind::requestEnded).at(0).record;
  EXPECT_GT(connected.connecting.count(), 0);
  EXPECT_GT(connected.duration, connected.connecting);  // TLS comes after
  EXPECT_GE(ended.waiting, connected.duration);
  EXPECT_GT(answered.duration, ended.waiting);
  EXPECT_GE(ended.duration, answered.duration);
}

TEST_F(URLSessionTest, WhoObservesLateIsToldAllTimes) {
  using Clock = std::chrono::steady_clock;
  std::promise<Clock::time_point> asked;
  std::promise<void> observed;
  const TestTLSServer peer({}, [&](TestPeer& client) {
    const auto connected = Clock::now();
    (void)client.readRequest();
    asked.set_value(connected);
    observed.get_future().wait();
    client.write(httpResponse("hello"));
  });
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  const auto start = Clock::now();
  task->resume();
  const auto connected = asked.get_future().get();
  const TraceCapture trace{task->taskIdentifier() - 1};
  const auto now = Clock::now();
  observed.set_value();
  (void)box.wait();
  const auto answered = trace.of(TraceRecord::Kind::answered).at(0).record;
  const auto ended = trace.of(TraceRecord::Kind::requestEnded).at(0).record;
  EXPECT_GT(answered.duration, now - connected);
  EXPECT_GT(ended.waiting.count(), 0);
  EXPECT_LT(ended.waiting, answered.duration);
  EXPECT_LT(ended.duration, Clock::now() - start);
}

TEST_F(LoadingTraceTest, NamesNoQuery) {
  const TestTLSServer peer({}, answering(httpResponse("")));
  (void)load(*session, URLRequest(peer.url("127.0.0.1", "/a?token=secret")));
  ASSERT_FALSE(trace.all().empty());
  for (const KeptTrace& kept : trace.all()) EXPECT_EQ(kept.path, "/a");
}

TEST_F(LoadingTraceTest, AConnectionIsToldOnce) {
  const TestTLSServer peer({}, answering(httpResponse("")));
  for (int i = 0; i < 3; ++i) (void)load(*session, URLRequest(peer.url("127.0.0.1")));
  const auto connected = trace.of(TraceRecord::Kind::connected);
  ASSERT_EQ(connected.size(), 1U);
  EXPECT_EQ(connected[0].record.duration, connected[0].record.connecting);  // no TLS
  EXPECT_EQ(trace.of(TraceRecord::Kind::requestEnded).size(), 3U);
}

TEST_F(LoadingTraceTest, RedirectsAreRepetitions) {
  const TestTLSServer peer({}, [](TestPeer& client) {
    for (auto request = client.readRequest(); !request.empty(); request = client.readRequest()) {
      const bool isLast = request.starts_with("GET /c ");
      const std::string next = request.starts_with("GET /a ") ? "/b" : "/c";
      client.write(isLast ? httpResponse("end")
                          : httpResponse("", "302 Found", "Location: " + next + "\r\n"));
    }
  });
  (void)load(*session, URLRequest(peer.url("127.0.0.1", "/a")));
  const auto repeated = trace.of(TraceRecord::Kind::requestRepeated);
  ASSERT_EQ(repeated.size(), 2U);
  EXPECT_EQ(repeated[0].path, "/b");
  EXPECT_EQ(repeated[1].path, "/c");
  EXPECT_EQ(repeated[0].record.status, 302);
  EXPECT_EQ(repeated[0].record.count, 1);
  EXPECT_EQ(repeated[1].record.count, 2);
  EXPECT_EQ(trace.of(TraceRecord::Kind::answered).size(), 1U);
  EXPECT_EQ(trace.of(TraceRecord::Kind::requestEnded).at(0).path, "/c");
}

TEST_F(LoadingTraceTest, AFailureIsToldBeforeTheHandlerIsCalled) {
  const TestTLSServer peer({}, [](TestPeer& client) {
    (void)client.readRequest();
    client.reset();
  });
  std::promise<std::size_t> told;
  const auto task = session->dataTask(
      URLRequest(peer.url("127.0.0.1")), [&](const auto&, const auto&, const auto&) {
        told.set_value(trace.of(TraceRecord::Kind::requestEnded).size());
      });
  task->resume();
  EXPECT_EQ(told.get_future().get(), 1U);
  const auto ended = trace.of(TraceRecord::Kind::requestEnded).at(0);
  EXPECT_EQ(ended.record.status, 0);
  ASSERT_TRUE(ended.error);
  EXPECT_TRUE(ended.error->is(NSURLErrorDomain, NSURLErrorNetworkConnectionLost));
}

TEST_F(LoadingTraceTest, ACancelIsAnEnd) {
  std::promise<void> sent;
  const TestTLSServer peer({}, [&sent](TestPeer& client) {
    (void)client.readRequest();
    sent.set_value();
    (void)client.readRequest();
  });
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  task->resume();
  sent.get_future().wait();
  task->cancel();
  (void)box.wait();
  EXPECT_EQ(trace.kinds(),
            (TraceKinds{TraceRecord::Kind::requestBegan, TraceRecord::Kind::connected,
                        TraceRecord::Kind::requestEnded}));
  ASSERT_TRUE(trace.all().back().error);
  EXPECT_TRUE(trace.all().back().error->is(NSURLErrorDomain, NSURLErrorCancelled));
}

}  // namespace
}  // namespace kvl::testing
