// How much of an answer is taken, and for how long.
#include "tests/support/WaitUntil.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace kvl::testing {
namespace {

using std::chrono::milliseconds;

constexpr const char* kChunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n";
constexpr const char* kHeadDescription =
    "The header fields of the server's response are larger than allowed.";

std::string chunk(std::string_view bytes) {
  char size[32];
  std::snprintf(size, sizeof(size), "%zx\r\n", bytes.size());
  return size + std::string(bytes) + "\r\n";
}

// The beginning of a gzip stream (RFC 1952) of zeros: about 165 bytes of content for each of its
// own, in one block with fixed codes (RFC 1951, 3.2.6).
std::string zerosInGzip(std::size_t size) {
  std::string stream("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
  std::size_t bits = 0;
  const auto put = [&](std::string_view code) {
    for (const char bit : code) {
      if (bits % 8 == 0) stream.push_back('\0');
      if (bit == '1') stream.back() = static_cast<char>(stream.back() | 1 << bits % 8);
      ++bits;
    }
  };
  put("010");                                         // not the last block, fixed codes
  put("00110000");                                    // a zero
  while (stream.size() < size) put("1100010100000");  // the 258 bytes before once more
  return stream;
}

std::string description(const Outcome& outcome) {
  if (!outcome.error) return "none";
  return std::string(outcome.error->localizedDescription());
}

class AnswerLimitTest : public URLSessionTest {
 protected:
  AnswerLimitTest() {
    configuration.maximumBodySize = 3000;
    configuration.maximumDocumentBytes = 2000;
    configuration.maximumImageBytes = 1000;
  }

  [[nodiscard]] Outcome loadKind(const TestTLSServer& peer, ContentKind kind) {
    URLRequest request(peer.url("127.0.0.1"));
    request.setContentKind(kind);
    return load(*URLSession::create(configuration, delegate), request);
  }

  URLSessionConfiguration configuration;
};

TEST_F(AnswerLimitTest, EachKindOfBodyHasALimitOfItsOwn) {
  const std::pair<ContentKind, std::size_t> limits[] = {{ContentKind::data, 3000},
                                                        {ContentKind::document, 2000},
                                                        {ContentKind::image, 1000},
                                                        {ContentKind::eventStream, 3000}};
  for (const auto& [kind, limit] : limits) {
    for (const bool isTooLong : {false, true}) {
      const std::string body(limit + (isTooLong ? 1 : 0), 'x');
      const std::string chunked = kChunkedHead + ("\r\n" + chunk(body)) + "0\r\n\r\n";
      for (const std::string& answer : {httpResponse(body), chunked}) {
        const TestTLSServer peer({.identity = &server()}, answering(answer));
        const Outcome outcome = loadKind(peer, kind);
        EXPECT_EQ(outcome.code(), isTooLong ? NSURLErrorDataLengthExceedsMaximum : 0) << limit;
        EXPECT_EQ(outcome.body.has_value(), !isTooLong) << limit;
        if (isTooLong)
          EXPECT_EQ(description(outcome), "The server's response is larger than allowed.");
      }
    }
  }
}

TEST_F(AnswerLimitTest, TheDefaultsAreThoseOfTheDocumentation) {
  const auto defaults = URLSessionConfiguration::ephemeral();
  EXPECT_EQ(defaults.maximumImageBytes, 16U << 20);
  EXPECT_EQ(defaults.maximumDocumentBytes, 128U << 20);
  EXPECT_EQ(defaults.maximumHeaderBytes, 64U << 10);
  EXPECT_EQ(defaults.timeoutIntervalForResource, std::chrono::nanoseconds::max());
}

TEST_F(AnswerLimitTest, AnAnnouncedLengthIsRefusedBeforeTheBodyComes) {
  const TestTLSServer peer({.identity = &server()},
                           answering("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n"));
  EXPECT_EQ(loadKind(peer, ContentKind::image).code(), NSURLErrorDataLengthExceedsMaximum);
}

TEST_F(AnswerLimitTest, ALengthWithoutABodyIsNoLength) {
  const TestTLSServer peer(
      {.identity = &server()},
      answering("HTTP/1.1 304 Not Modified\r\nContent-Length: 1000000\r\n\r\n"));
  EXPECT_EQ(loadKind(peer, ContentKind::image).code(), 0);
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("HEAD");
  EXPECT_EQ(load(*URLSession::create(configuration, delegate), request).code(), 0);
}

TEST_F(AnswerLimitTest, DecodedBytesCount) {
  const std::string bytes = zerosInGzip(64);
  ASSERT_LT(bytes.size(), configuration.maximumImageBytes);
  const TestTLSServer peer({.identity = &server()},
                           answering(httpResponse(bytes, "200 OK", "Content-Encoding: gzip\r\n")));
  EXPECT_EQ(loadKind(peer, ContentKind::image).code(), NSURLErrorDataLengthExceedsMaximum);
}

TEST_F(AnswerLimitTest, ADelegateGetsNoMoreOfASwellingBodyThanItTakes) {
  // libcurl unfolds at least what it has read at once, 16 KiB.
  constexpr std::size_t kMost = std::size_t{20} << 20;
  std::atomic<bool> ended = false;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n");
    client.write(zerosInGzip(1 << 20));
    while (!ended && client.write("x")) std::this_thread::sleep_for(milliseconds(1));
  });
  configuration.deliveryBufferSize = 64U << 10;
  std::atomic<std::size_t> largest = 0;
  delegate->onData = [&](const std::shared_ptr<DataTask>& task) {
    largest = delegate->chunks().back().size();
    task->cancel();
  };
  const auto loader = URLSession::create(configuration, delegate);
  loader->dataTask(URLRequest(peer.url("127.0.0.1")))->resume();
  static_cast<void>(delegate->waitForCompletion());
  ended = true;
  EXPECT_GT(largest, 0U);
  EXPECT_LT(largest, kMost);
}

TEST_F(AnswerLimitTest, AnEventStreamIsOfferedAndTakenWithoutEncoding) {
  const TestTLSServer echo({.identity = &server()}, [](TestPeer& client) {
    client.write(httpResponse(client.readRequest()));
  });
  const std::string sent = loadKind(echo, ContentKind::eventStream).text();
  EXPECT_NE(sent.find("Accept-Encoding: identity\r\n"), std::string::npos) << sent;
  EXPECT_EQ(sent.find("gzip"), std::string::npos) << sent;

  for (const std::string field : {"Content-Encoding: gzip\r\n", "Content-Encoding: br\r\n"}) {
    const TestTLSServer peer({.identity = &server()},
                             answering(httpResponse("data: 1\n\n", "200 OK", field)));
    const Outcome outcome = loadKind(peer, ContentKind::eventStream);
    EXPECT_EQ(outcome.code(), NSURLErrorCannotDecodeContentData);
    EXPECT_EQ(description(outcome), "The event stream has a content encoding.");
  }
  const TestTLSServer plain(
      {.identity = &server()},
      answering(httpResponse("data: 1\n\n", "200 OK", "Content-Encoding: identity\r\n")));
  EXPECT_EQ(loadKind(plain, ContentKind::eventStream).text(), "data: 1\n\n");
}

TEST_F(AnswerLimitTest, HeaderFieldsOfAllKindsCountTogether) {
  const std::string field = "X-Field: " + std::string(1000, 'x') + "\r\n";
  const struct {
    const char* name;
    std::string begin;
    std::string again;
  } floods[] = {{"fields", "HTTP/1.1 200 OK\r\n", field},
                {"one line", "HTTP/1.1 200 OK\r\nX-Field: ", "xxxxxxxxxxxxxxxx"},
                {"interim answers", "", "HTTP/1.1 103 Early\r\nX-Early: 1\r\n\r\n"},
                {"trailers", kChunkedHead + ("\r\n" + chunk("x")) + "0\r\n", field}};
  for (const auto& flood : floods) {
    const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
      static_cast<void>(client.readRequest());
      std::string block;
      while (block.size() < 8192) block += flood.again;
      bool isTaken = client.write(flood.begin + block);
      while (isTaken) isTaken = client.write(block);
    });
    const Outcome outcome = load(*session, URLRequest(peer.url("127.0.0.1")));
    EXPECT_EQ(outcome.code(), NSURLErrorDataLengthExceedsMaximum) << flood.name;
    EXPECT_EQ(description(outcome), kHeadDescription) << flood.name;
  }
}

TEST_F(AnswerLimitTest, ARequestEndsWhenItsTotalTimeIsOverAlthoughBytesArrive) {
  const auto drip = [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\n\r\n");
    while (client.write("x")) std::this_thread::sleep_for(milliseconds(2));
  };
  const TestTLSServer peer({.identity = &server()}, drip);
  configuration.timeoutIntervalForResource = milliseconds(100);
  EXPECT_EQ(loadKind(peer, ContentKind::data).code(), NSURLErrorTimedOut);

  // A stream has no end that could be late.
  const auto loader = URLSession::create(configuration, delegate);
  URLRequest request(peer.url("127.0.0.1"));
  request.setContentKind(ContentKind::eventStream);
  const auto stream = loader->dataTask(request);
  stream->resume();
  delegate->waitForBytes(1);
  EXPECT_EQ(load(*loader, URLRequest(peer.url("127.0.0.1"))).code(), NSURLErrorTimedOut);
  EXPECT_EQ(stream->state(), DataTask::State::running);
  stream->cancel();
}

}  // namespace
}  // namespace kvl::testing
