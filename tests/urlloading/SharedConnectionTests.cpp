// What one exchange takes off a connection for another.
#include "platform/urlloading/InputMeter.h"
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace kvl::testing {
namespace {

constexpr std::size_t kFrameSize = 10000;

// The end stands in the last frame.
std::string frames(std::uint32_t stream, std::string_view body) {
  std::string bytes;
  while (!body.empty()) {
    const auto piece = body.substr(0, kFrameSize);
    body.remove_prefix(piece.size());
    const auto end = body.empty() ? HTTP2Frame::kEndStream : std::uint8_t{0};
    bytes += encoded({HTTP2Frame::data, end, stream, std::string(piece)});
  }
  return bytes;
}

// An answer without a length.
std::string answer(std::uint32_t stream, std::string_view body) {
  return encoded({HTTP2Frame::headers, HTTP2Frame::kEndHeaders, stream, "\x88"}) +
         frames(stream, body);
}

std::string bodyOf(std::size_t size) {
  std::string body(size, 'x');
  for (std::size_t i = 0; i < size; i += kFrameSize / 4) body[i] = static_cast<char>('a' + i % 26);
  return body;
}

// All threads share a processor, so that all of what is sent at once is there when it is read.
class IdleConnectionTest : public URLSessionTest {
 protected:
  IdleConnectionTest() {
    sched_getaffinity(0, sizeof all_, &all_);
    cpu_set_t one{};
    CPU_SET(sched_getcpu(), &one);
    confineThreads(one);
  }
  ~IdleConnectionTest() override { confineThreads(all_); }

 private:
  static void confineThreads(const cpu_set_t& processors) {
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
      sched_setaffinity(std::stoi(thread.path().filename()), sizeof processors, &processors);
  }
  cpu_set_t all_{};
};

class BesideASilentExchangeTest : public URLSessionTest,
                                  public ::testing::WithParamInterface<std::size_t> {};

// The silent one began first, so that it finds what comes for the other.
TEST_P(BesideASilentExchangeTest, AnAnswerIsWholeAtOnce) {
  constexpr std::size_t kRounds = 20;
  const auto bodyIn = [](std::size_t round) { return bodyOf(GetParam() + 2003 * round); };
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer speaker(connection);
    const auto silent = speaker.nextRequest();
    auto stream = silent ? speaker.nextRequest() : std::nullopt;
    for (std::size_t round = 0; stream; stream = speaker.nextRequest())
      connection.write(answer(*stream, bodyIn(round++)));
  });
  const URLRequest request(peer.url("127.0.0.1"));
  OutcomeBox silent;
  const auto task = session->dataTask(request, silent.handler());
  task->resume();
  for (std::size_t round = 0; round < kRounds; ++round) {
    const Outcome outcome = load(*session, request);
    ASSERT_FALSE(outcome.error) << outcome.error->description();
    ASSERT_TRUE(outcome.text() == bodyIn(round)) << outcome.text().size() << " in round " << round;
  }
  task->cancel();
  EXPECT_EQ(silent.wait().code(), NSURLErrorCancelled);
}

INSTANTIATE_TEST_SUITE_P(Sizes, BesideASilentExchangeTest,
                         ::testing::Values(20000, 60000, 250000, 1000000));

// A head whose "content-length" is in the static table (RFC 7541, appendix A).
std::string measuredHead(std::uint32_t stream, std::size_t size) {
  const std::string length = std::to_string(size);
  const std::string head = std::string("\x88\x0f\x0d", 3) + static_cast<char>(length.size());
  return encoded({HTTP2Frame::headers, HTTP2Frame::kEndHeaders, stream, head + length});
}

// A frame of this size of nothing but padding, which nobody takes.
std::string padding(std::uint32_t stream, std::size_t size) {
  constexpr std::uint8_t kPadded = 8;
  constexpr std::size_t kAround = 10;
  std::string payload(size - kAround + 1, '\0');
  payload.front() = static_cast<char>(size - kAround);
  return encoded({HTTP2Frame::data, kPadded, stream, payload});
}

// Both answers, with so much between them that no more is read in their pass.
std::string answers(std::uint32_t first, std::uint32_t second) {
  constexpr std::size_t kPiece = 128;
  constexpr std::string_view kBody = "hello";
  const std::string begin = measuredHead(second, kBody.size());
  const std::string end =
      frames(second, kBody) + measuredHead(first, kBody.size()) + frames(first, kBody);
  std::string between;
  auto left = urlloading::InputMeter::kUntaken - begin.size() - end.size();
  for (; left > 2 * kPiece; left -= kPiece) between += padding(second, kPiece);
  return begin + between + padding(second, left) + end;
}

// What the last pass has read does not count when libcurl looks whether the connection lives.
TEST_F(IdleConnectionTest, StaysAfterMuchAtOnceAndAFrameOfItsOwn) {
  constexpr int kRounds = 20;
  Semaphore taken;
  Semaphore sent;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer speaker(connection);
    while (const auto first = speaker.nextRequest()) {
      const auto second = speaker.nextRequest();
      if (!second) return;
      connection.write(answers(*first, *second));
      taken.wait();
      speaker.send({HTTP2Frame::ping, 0, 0, "12345678"});
      sent.signal();
    }
  });
  const URLRequest request(peer.url("127.0.0.1"));
  for (int round = 0; round < kRounds; ++round) {
    OutcomeBox first;
    OutcomeBox second;
    session->dataTask(request, first.handler())->resume();
    session->dataTask(request, second.handler())->resume();
    EXPECT_EQ(first.wait().code(), 0);
    EXPECT_EQ(second.wait().code(), 0);
    taken.signal();
    sent.wait();
  }
  EXPECT_EQ(peer.connections(), 1);
}

// Answers so many requests, the frames of all bodies in turns. Body and stream have one number.
void answerInTurns(TestPeer& connection, HTTP2Peer& speaker, std::size_t count, std::size_t size) {
  std::vector<std::uint32_t> streams;
  while (streams.size() < count) {
    const auto stream = speaker.nextRequest();
    if (!stream) return;
    streams.push_back(*stream);
  }
  std::string bytes;
  for (const auto stream : streams) bytes += measuredHead(stream, size + stream);
  for (std::size_t begin = 0; begin < size + streams.back(); begin += kFrameSize) {
    for (const auto stream : streams) {
      const std::string body(size + stream, static_cast<char>('a' + stream % 26));
      if (begin >= body.size()) continue;
      const bool isLast = begin + kFrameSize >= body.size();
      bytes += encoded({HTTP2Frame::data, isLast ? HTTP2Frame::kEndStream : std::uint8_t{0}, stream,
                        body.substr(begin, kFrameSize)});
    }
  }
  connection.write(bytes);
}

class BesideASlowReaderTest : public URLSessionTest,
                              public ::testing::WithParamInterface<std::size_t> {};

// The slow one takes its body when all others have theirs.
TEST_P(BesideASlowReaderTest, AllBodiesAreWhole) {
  constexpr std::size_t kTogether = 64;
  constexpr std::size_t kSize = 70000;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& connection) {
    HTTP2Peer speaker(connection);
    for (std::size_t left = GetParam(); left > 0; left -= std::min(left, kTogether))
      answerInTurns(connection, speaker, std::min(left, kTogether), kSize);
    while (speaker.next()) continue;
  });
  const URLRequest request(peer.url("127.0.0.1"));
  Semaphore isOver;
  std::size_t taken = 0;
  BodyReceiver receiver;
  receiver.piece = [&](const Data& piece) { taken += piece.size(); };
  receiver.end = [&](const URLResponseRef&, const std::optional<Error>& error) {
    EXPECT_FALSE(error);
    isOver.signal();
  };
  const auto slow = session->streamingTask(request, receiver);
  slow->suspendDelivery();
  slow->resume();
  std::vector<OutcomeBox> others(GetParam() - 1);
  for (auto& other : others) session->dataTask(request, other.handler())->resume();
  std::size_t stream = 1;
  for (auto& other : others) {
    const std::string body = other.wait().text();
    ASSERT_GT(body.size(), kSize);
    EXPECT_EQ(body, std::string(body.size(), body.front()));
    EXPECT_EQ(body.size(), kSize + (stream += 2));
  }
  slow->resumeDelivery();
  isOver.wait();
  EXPECT_EQ(taken, kSize + 1);
  EXPECT_EQ(peer.connections(), 1);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, BesideASlowReaderTest, ::testing::Values(2, 16, 256));

}  // namespace
}  // namespace kvl::testing
