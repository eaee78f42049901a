// What a host sees of a service whose answers are bad, late or without end.
#include "tests/faults/NumberedScene.h"

#include <atomic>
#include <memory>
#include <ostream>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::testing::TestPeer;

constexpr const char* kHead = "HTTP/1.1 200 OK\r\n";
constexpr const char* kOpenHead = "HTTP/1.1 200 OK\r\n\r\n";

// Sends the same again and again until the client has had enough.
NumberedService::Fault flood(const std::string& begin, const std::string& unit) {
  return [begin, unit](TestPeer& peer) {
    constexpr std::size_t kBlock = 16000;
    // Beyond this nobody holds the sender back.
    constexpr std::size_t kMost = std::size_t{1} << 30;
    std::string block;
    while (block.size() < kBlock) block += unit;
    bool isTaken = peer.write(begin);
    std::size_t sent = 0;
    for (; isTaken && sent < kMost; sent += block.size()) isTaken = peer.write(block);
    EXPECT_LT(sent, kMost);
  };
}

NumberedService::Fault saying(const std::string& bytes) {
  return [bytes](TestPeer& peer) { peer.write(bytes); };
}

NumberedService::Fault resettingAfter(const std::string& bytes) {
  return [bytes](TestPeer& peer) {
    if (!bytes.empty()) peer.write(bytes);
    peer.reset();
  };
}

struct Answer {
  const char* name;   // of the test
  const char* fault;  // in the table
  NumberedService::Fault serve;
  std::int64_t code;
};

void PrintTo(const Answer& answer, std::ostream* out) {
  *out << answer.name;
}

class ServiceAnswerFaults : public NumberedScene, public testing::WithParamInterface<Answer> {};

// A bad answer costs its request, and nothing else.
TEST_P(ServiceAnswerFaults, CostTheirRequestsAndNoIdentity) {
  beginNumbered();
  const auto identity = session->signature();
  beginFault();
  service.serve(GetParam().serve);
  for (const auto& reply : askMany(3)) expectFailure(reply, kvl::NSURLErrorDomain, GetParam().code);
  expectLog("error from request: ");
  EXPECT_EQ(log.count("enqueuing reconnection"), 0U);
  EXPECT_EQ(session->signature(), identity);
  endFault();
  service.serve(nullptr);
  recover();
  EXPECT_EQ(statesSeen(), "established");
  EXPECT_EQ(progressSeen(), "Established");
  report("service", GetParam().fault);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ServiceAnswerFaults,
    testing::Values(
        Answer{"None", "closes without an answer", saying(""),
               kvl::NSURLErrorNetworkConnectionLost},
        Answer{"ResetBeforeTheHead", "resets before the head", resettingAfter(""),
               kvl::NSURLErrorNetworkConnectionLost},
        Answer{"ResetInTheHead", "resets in the head",
               resettingAfter(std::string(kHead) + "Content-Type: te"),
               kvl::NSURLErrorNetworkConnectionLost},
        Answer{"ResetInTheBody", "resets in the body",
               resettingAfter(std::string(kHead) + "Content-Length: 100\r\n\r\nnumber="),
               kvl::NSURLErrorNetworkConnectionLost},
        Answer{"Rubbish", "answers rubbish", saying(std::string("\x01\x02\0rubbish\r\n\r\n", 13)),
               kvl::NSURLErrorBadServerResponse},
        Answer{"EndlessHead", "a gigabyte of header fields",
               flood(kHead, "X-Field: 0123456789\r\n"), kvl::NSURLErrorDataLengthExceedsMaximum},
        Answer{"EndlessBody", "an endless body", flood(kOpenHead, "{\"a\":1},\n"),
               kvl::NSURLErrorDataLengthExceedsMaximum},
        Answer{"EndlessLine", "an endless line of a document", flood(kOpenHead, "x"),
               kvl::NSURLErrorDataLengthExceedsMaximum}),
    [](const auto& row) { return row.param.name; });

struct Stall {
  const char* name;
  const char* fault;
  std::string bytes;  // that come before
};

void PrintTo(const Stall& stall, std::ostream* out) {
  *out << stall.name;
}

class ServiceStalls : public NumberedScene, public testing::WithParamInterface<Stall> {};

TEST_P(ServiceStalls, EndWhenTheRequestIsOutOfPatience) {
  beginNumbered();
  beginFault();
  service.serve([](TestPeer& peer) {
    if (!GetParam().bytes.empty()) peer.write(GetParam().bytes);
    while (!peer.readRequest().empty()) continue;
  });
  setLongestSilence(200ms);
  for (const auto& reply : askMany(3)) {
    expectFailure(reply, kvl::NSURLErrorDomain, kvl::NSURLErrorTimedOut);
  }
  setLongestSilence(std::nullopt);
  endFault();
  service.serve(nullptr);
  recover();
  EXPECT_EQ(statesSeen(), "established");
  report("service", GetParam().fault);
}

INSTANTIATE_TEST_SUITE_P(Phases, ServiceStalls,
                         testing::Values(Stall{"BeforeTheHead", "stalls before the head", ""},
                                         Stall{"InTheHead", "stalls in the head", kHead},
                                         Stall{"InTheBody", "stalls in the body",
                                               std::string(kHead) +
                                                   "Content-Length: 100\r\n\r\nnumber="}),
                         [](const auto& row) { return row.param.name; });

class ServiceStreamFaults : public NumberedScene {
 protected:
  // The stream opens and ends as `fault` has it, again and again; then all is well.
  void streamThrough(const NumberedService::Fault& fault, std::int64_t code) {
    beginNumbered();
    beginFault();
    service.serve(fault);
    session->setEventStreamSource("events");
    expectLog(
        "event stream closed with unexpected network error: Error Domain=NSURLErrorDomain "
        "Code=" +
        std::to_string(code));
    expectRetryAfter(1);
    ASSERT_TRUE(waitForState(KVLSessionStateEstablished, 2));
    endFault();
    service.serve(nullptr);
    ASSERT_TRUE(recorder->waitForCount(1));
    session->setEventStreamSource("");
    recover();
    EXPECT_EQ(statesSeen(), "established, disconnected, established");
  }
};

TEST_F(ServiceStreamFaults, StreamThatIsResetComesBack) {
  streamThrough(resettingAfter(std::string(kOpenHead) + "data: a"),
                kvl::NSURLErrorNetworkConnectionLost);
  report("service", "resets the event stream");
}

TEST_F(ServiceStreamFaults, StreamThatIsRubbishComesBack) {
  streamThrough(saying("rubbish\r\n\r\n"), kvl::NSURLErrorBadServerResponse);
  report("service", "an event stream of rubbish");
}

// What is too long of it is passed over, and the events behind it come.
TEST_F(ServiceStreamFaults, EndlessLineIsGivenUpAndTheNextEventComes) {
  beginNumbered();
  beginFault();
  const auto goesOn = std::make_shared<std::atomic<bool>>(true);
  service.serve([goesOn](TestPeer& peer) {
    const std::string block(std::size_t{1} << 16, 'x');
    bool isTaken = peer.write(std::string(kOpenHead) + "data: ");
    for (std::size_t sent = 0; isTaken && (*goesOn || sent < 4 * kLongestLine);) {
      isTaken = peer.write(block);
      sent += block.size();
    }
    if (isTaken) peer.write("\n\nevent: number\nid: 1\ndata: after\n\n");
    while (!peer.readRequest().empty()) continue;
  });
  session->setEventStreamSource("events");
  expectLog("ignoring event-source line of more than 1048576 bytes: data: xxx");
  EXPECT_TRUE(recorder->events().empty());
  *goesOn = false;
  ASSERT_TRUE(recorder->waitForCount(1));
  EXPECT_EQ(recorder->events().front().data, "after");
  endFault();
  service.serve(nullptr);
  session->setEventStreamSource("");
  recover();
  EXPECT_EQ(statesSeen(), "established");
  report("service", "an endless line of the event stream");
}

}  // namespace
