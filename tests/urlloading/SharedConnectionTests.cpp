// What one exchange takes off a connection for another.
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <string>

namespace kvl::testing {
namespace {

constexpr std::size_t kFrameSize = 10000;

// An answer without a length, whose end stands in its last frame.
std::string answer(std::uint32_t stream, std::string_view body) {
  std::string bytes = encoded({HTTP2Frame::headers, HTTP2Frame::kEndHeaders, stream, "\x88"});
  while (!body.empty()) {
    const auto piece = body.substr(0, kFrameSize);
    body.remove_prefix(piece.size());
    const auto end = body.empty() ? HTTP2Frame::kEndStream : std::uint8_t{0};
    bytes += encoded({HTTP2Frame::data, end, stream, std::string(piece)});
  }
  return bytes;
}

std::string bodyOf(std::size_t size) {
  std::string body(size, 'x');
  for (std::size_t i = 0; i < size; i += kFrameSize / 4) body[i] = static_cast<char>('a' + i % 26);
  return body;
}

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

}  // namespace
}  // namespace kvl::testing
