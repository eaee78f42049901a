// Servers that send without end what is nothing of an answer.
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace kvl::testing {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kBlock = 16000;
constexpr std::size_t kMegabyte = std::size_t{1} << 20;

std::string repeated(std::string_view unit) {
  std::string block;
  while (block.size() < kBlock) block += unit;
  return block;
}

// Frames of the first stream, or of none.
constexpr std::string_view kEmptyData("\0\0\0\0\0\0\0\0\1", 9);
constexpr std::string_view kOneByte("\0\0\1\0\0\0\0\0\1x", 10);
constexpr std::string_view kPing("\0\0\x8\6\0\0\0\0\0pingpong", 17);
constexpr std::string_view kSettings("\0\0\0\4\0\0\0\0\0", 9);
constexpr std::string_view kWindowUpdate("\0\0\4\x8\0\0\0\0\1\0\0\0\1", 13);
constexpr std::string_view kUnknown("\0\0\0\x7f\0\0\0\0\0", 9);
constexpr std::string_view kPriority("\0\0\5\2\0\0\0\0\1\0\0\0\3\1", 14);

class FloodTest : public URLSessionTest {
 protected:
  // Answers with a head, and then floods until the client is gone.
  [[nodiscard]] TestTLSServer::Handler flooding(std::string_view unit,
                                                std::string_view useful = "") {
    return [this, block = repeated(unit), useful = std::string(useful)](TestPeer& peer) {
      HTTP2Peer speaker(peer);
      const auto stream = speaker.nextRequest();
      if (!stream || !speaker.sendHead(*stream)) return;
      std::size_t sinceUseful = 0;
      while (peer.write(block)) {
        flooded += block.size();
        sinceUseful += block.size();
        if (useful.empty() || sinceUseful < 8 * kMegabyte) continue;
        sinceUseful = 0;
        if (!peer.write(useful)) return;
      }
    };
  }
  [[nodiscard]] std::shared_ptr<DataTask> start(const TestTLSServer& peer, OutcomeBox& box) {
    auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
    task->resume();
    return task;
  }
  void waitForFlood() const {
    while (flooded < kMegabyte) std::this_thread::yield();
  }

  std::atomic<std::size_t> flooded = 0;
};

TEST_F(FloodTest, OthersAndCancellingGoOnBesideOne) {
  // Now and then a byte of a body keeps the connection.
  const TestTLSServer flood({.identity = &server(), .protocol = "h2"},
                            flooding(kEmptyData, kOneByte));
  const TestTLSServer other({.identity = &server()}, answering(httpResponse("hello")));
  OutcomeBox box;
  const auto task = start(flood, box);
  waitForFlood();
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(load(*session, URLRequest(other.url("127.0.0.1"))).text(), "hello");
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
}

TEST_F(FloodTest, ATimeOutEndsOne) {
  const TestTLSServer flood({.identity = &server(), .protocol = "h2"}, flooding(kEmptyData));
  URLRequest request(flood.url("127.0.0.1"));
  request.setTimeoutInterval(milliseconds(20));
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
  // What is read at most, and the sockets' buffers.
  EXPECT_LT(flooded, 96 * kMegabyte);
}

TEST_F(FloodTest, AConnectionThatBringsNothingOfAnAnswerIsBrokenOff) {
  for (const auto unit : {kEmptyData, kWindowUpdate, kUnknown, kPriority}) {
    const TestTLSServer flood({.identity = &server(), .protocol = "h2"}, flooding(unit));
    OutcomeBox box;
    static_cast<void>(start(flood, box));
    EXPECT_EQ(box.wait().code(), NSURLErrorBadServerResponse) << static_cast<int>(unit[3]);
  }
}

TEST_F(FloodTest, AFloodThatAsksForRepliesEndsWhenNobodyReadsThem) {
  for (const auto unit : {kPing, kSettings}) {
    const TestTLSServer flood({.identity = &server(), .protocol = "h2"}, flooding(unit));
    OutcomeBox box;
    static_cast<void>(start(flood, box));
    EXPECT_NE(box.wait().code(), 0) << static_cast<int>(unit[3]);
  }
}

TEST_F(FloodTest, ChunkExtensionsAndEncodingsWithoutContentAreNothingOfAnAnswer) {
  const std::string head = "HTTP/1.1 200 OK\r\n";
  const std::pair<std::string, std::string> floods[] = {
      {head + "Transfer-Encoding: chunked\r\n\r\n1;", "extension"},
      // Empty blocks that are stored as they are (RFC 1951, 3.2.4).
      {head + "Content-Encoding: deflate\r\n\r\n\x78\x9c", std::string("\0\0\0\xff\xff", 5)}};
  for (const auto& [begin, unit] : floods) {
    const TestTLSServer flood({.identity = &server()}, [&, block = repeated(unit)](TestPeer& peer) {
      static_cast<void>(peer.readRequest());
      bool isTaken = peer.write(begin);
      while (isTaken) isTaken = peer.write(block);
    });
    OutcomeBox box;
    static_cast<void>(start(flood, box));
    EXPECT_EQ(box.wait().code(), NSURLErrorBadServerResponse) << begin;
  }
}

TEST_F(FloodTest, ALargeBodyIsNone) {
  constexpr std::size_t kSize = 100 * kMegabyte;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n");
    const std::string block(kBlock, 'x');
    for (std::size_t sent = 0; sent < kSize; sent += block.size())
      client.write(std::string_view(block).substr(0, kSize - sent));
  });
  std::atomic<std::size_t> received = 0;
  class Counter final : public RecordingDelegate {
   public:
    explicit Counter(std::atomic<std::size_t>& received) : received_(received) {}
    void didReceiveData(URLSession&, const std::shared_ptr<DataTask>&, const Data& data) override {
      received_ += data.size();
    }

   private:
    std::atomic<std::size_t>& received_;
  };
  const auto counter = std::make_shared<Counter>(received);
  counter->anchor = delegate->anchor;
  const auto loader = URLSession::create(URLSessionConfiguration::ephemeral(), counter);
  loader->dataTask(URLRequest(peer.url("127.0.0.1")))->resume();
  EXPECT_FALSE(counter->waitForCompletion());
  EXPECT_EQ(received, kSize);
}

}  // namespace
}  // namespace kvl::testing
