// Bodies that are read from a source while they are sent.
#include "tests/urlloading/BodySourceFixture.h"
#include "tests/urlloading/TextSource.h"

#include <local/platform/Atomic.h>

#include <algorithm>
#include <fstream>
#include <thread>
#include <utility>

namespace kvl::testing {
namespace {

std::string readHead(TestPeer& peer) {
  std::string head;
  while (!head.ends_with("\r\n\r\n")) {
    const std::string next = peer.read(1);
    if (next.empty()) break;
    head += next;
  }
  return head;
}

// The content of a chunked body.
std::string readChunks(TestPeer& peer) {
  std::string content;
  for (;;) {
    std::string line;
    while (!line.ends_with("\r\n")) {
      const std::string next = peer.read(1);
      if (next.empty()) return "(cut) " + content;
      line += next;
    }
    const std::size_t size = std::stoul(line, nullptr, 16);
    const std::string chunk = peer.read(size + 2);
    if (size == 0) return content;
    content += chunk.substr(0, size);
  }
}

TEST_F(BodySourceTest, EveryShortReadIsTaken) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const std::string text = mixedText(3000);
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
    const auto source = std::make_shared<TextSource>(text);
    source->step = step;
    const std::string sent = send(peer, source).text();
    EXPECT_TRUE(sent.starts_with("POST / HTTP/1.1\r\n")) << sent;
    EXPECT_NE(sent.find("Content-Length: 3000\r\n"), std::string::npos) << sent;
    EXPECT_EQ(sent.find("Expect"), std::string::npos) << sent;
    EXPECT_EQ(sent.find("Content-Type"), std::string::npos) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\n" + text)) << step;
    EXPECT_EQ(source->rewinds, 0);
  }
}

TEST_F(BodySourceTest, LargeBodiesArriveWholeAndInOrder) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    const std::string request = client.readRequest();
    client.write(httpResponse(std::to_string(std::hash<std::string_view>()(
        std::string_view(request).substr(request.find("\r\n\r\n") + 4)))));
  });
  const std::string text = mixedText(5'000'003);
  EXPECT_EQ(send(peer, std::make_shared<TextSource>(text)).text(),
            std::to_string(std::hash<std::string_view>()(text)));
}

TEST_F(BodySourceTest, EveryMethodCanHaveOne) {
  const TestTLSServer peer({}, returning);
  for (const std::string method : {"GET", "PUT", "PATCH", "DELETE", "PROPFIND"}) {
    const std::string sent =
        load(*session, request(peer, std::make_shared<TextSource>("body"), method)).text();
    EXPECT_TRUE(sent.starts_with(method + " / HTTP/1.1\r\n")) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\nbody")) << sent;
  }
}

TEST_F(BodySourceTest, NoneGoesOverHTTP2) {
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, returning);
  const Outcome outcome = send(peer, std::make_shared<TextSource>("body"));
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->httpVersion, 11);
}

TEST_F(BodySourceTest, AnEmptyOneIsNotRead) {
  const TestTLSServer peer({}, returning);
  const auto source = std::make_shared<TextSource>("");
  const std::string sent = send(peer, source).text();
  EXPECT_NE(sent.find("Content-Length: 0\r\n"), std::string::npos) << sent;
  EXPECT_EQ(source->reads, 0);
}

TEST_F(BodySourceTest, ChunkedWithoutALength) {
  const std::string text = mixedText(600'000);
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    const std::string head = readHead(client);
    client.write(httpResponse(head + readChunks(client)));
  });
  for (const bool isEmpty : {false, true}) {
    const auto source = std::make_shared<TextSource>(isEmpty ? "" : text);
    source->said.reset();
    const std::string sent = send(peer, source).text();
    EXPECT_NE(sent.find("Transfer-Encoding: chunked\r\n"), std::string::npos);
    EXPECT_EQ(sent.find("Content-Length"), std::string::npos);
    EXPECT_TRUE(sent.ends_with("\r\n\r\n" + source->text));
  }
}

TEST_F(BodySourceTest, AnErrorEndsTheRequestWithIt) {
  std::atomic<int> served = 0;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    if (!client.readRequest().empty()) ++served;
  });
  for (const std::size_t place : {0, 400'000}) {
    const auto source = std::make_shared<TextSource>(mixedText(500'000));
    source->step = 100'000;
    source->failsAt = place;
    const Outcome outcome = send(peer, source);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(*outcome.error, Error("Own", 5));
  }
}

TEST_F(BodySourceTest, TooFewBytesAreAnError) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto source = std::make_shared<TextSource>("some");
  source->said = 5;
  const Outcome outcome = send(peer, source);
  EXPECT_EQ(outcome.code(), NSURLErrorRequestBodyStreamExhausted);
  EXPECT_TRUE(outcome.error->userInfo()[NSURLErrorFailingURLStringErrorKey].string());
}

TEST_F(BodySourceTest, TooManyAreNotRead) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto source = std::make_shared<TextSource>("some body");
  source->said = 4;
  EXPECT_TRUE(send(peer, source).text().ends_with("\r\n\r\nsome"));
  EXPECT_EQ(source->given, 4U);
}

TEST_F(BodySourceTest, ASlowSourceHoldsUpNobodyAndSpinsNothing) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto door = std::make_shared<Door>();
  const auto source = std::make_shared<TextSource>(mixedText(300'000));
  source->onRead = [door](std::size_t given) {
    if (given > 0) door->pass();
  };
  URLRequest slow = request(peer, source);
  // The silence is the host's own.
  slow.setTimeoutInterval(std::chrono::milliseconds(200));
  OutcomeBox box;
  session->dataTask(slow, box.handler())->resume();
  while (source->reads < 2) std::this_thread::yield();
  const TestTLSServer silent({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    static_cast<void>(client.readRequest());
  });
  const auto cpuTime = [] {
    std::uint64_t all = 0;
    for (const auto& thread : inputThreads()) {
      std::uint64_t one = 0;
      std::ifstream(thread / "schedstat") >> one;
      all += one;
    }
    return std::chrono::nanoseconds(all);
  };
  EXPECT_TRUE(load(*session, URLRequest(peer.url("127.0.0.1"))).body);
  URLRequest measure(silent.url("127.0.0.1"));
  measure.setTimeoutInterval(std::chrono::milliseconds(600));
  const auto before = cpuTime();
  EXPECT_EQ(load(*session, measure).code(), NSURLErrorTimedOut);
  EXPECT_LT(cpuTime() - before, std::chrono::milliseconds(300));
  door->open();
  EXPECT_TRUE(box.wait().text().ends_with(source->text));
}

TEST_F(BodySourceTest, TheTotalTimeEndsABlockedRead) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto door = std::make_shared<Door>();
  const auto source = std::make_shared<TextSource>("some body");
  source->onRead = [door](std::size_t) { door->pass(); };
  URLRequest slow = request(peer, source);
  slow.setTotalTimeout(std::chrono::milliseconds(200));
  EXPECT_EQ(load(*session, slow).code(), NSURLErrorTimedOut);
  EXPECT_EQ(source->callers, 1);
  door->open();
  while (source->callers > 0) std::this_thread::yield();
}

TEST_F(BodySourceTest, ACancelDuringAReadWaitsForNothing) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto door = std::make_shared<Door>();
  auto source = std::make_shared<TextSource>("some body");
  source->onRead = [door](std::size_t) { door->pass(); };
  const std::weak_ptr<TextSource> watched = source;
  OutcomeBox box;
  auto task = session->dataTask(request(peer, source), box.handler());
  task->resume();
  while (source->reads == 0) std::this_thread::yield();
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  EXPECT_EQ(std::exchange(source, nullptr)->callers, 1);
  task.reset();
  EXPECT_FALSE(watched.expired());
  door->open();
  while (!watched.expired()) std::this_thread::yield();
}

// The read of the first goes on when the second one's head has long arrived.
TEST_F(BodySourceTest, IsSentAgainAfterACancelDuringARead) {
  const auto source = std::make_shared<TextSource>(mixedText(10'000));
  std::atomic<bool> hasComeAgain = false;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    if (readHead(client).starts_with("POST /again ")) hasComeAgain = true;
    client.write(httpResponse(client.read(source->text.size())));
  });
  const auto door = std::make_shared<Door>();
  source->onRead = [door](std::size_t) { door->pass(); };
  OutcomeBox box;
  const auto task = session->dataTask(request(peer, source), box.handler());
  task->resume();
  while (source->reads == 0) std::this_thread::yield();
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  URLRequest again(peer.url("127.0.0.1", "/again"));
  again.setMethod("POST");
  again.setBodySource(source);
  OutcomeBox second;
  session->dataTask(again, second.handler())->resume();
  while (!hasComeAgain) std::this_thread::yield();
  EXPECT_EQ(source->reads, 1);
  door->open();
  EXPECT_EQ(second.wait().text(), source->text);
  EXPECT_EQ(source->rewinds, 1);
}

TEST_F(BodySourceTest, AReadCancelsItsOwnTask) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
  const auto held = std::make_shared<Atomic<std::shared_ptr<DataTask>>>();
  source->onRead = [held](std::size_t given) {
    const auto task = held->get();
    if (given > 0 && task) task->cancel();
  };
  OutcomeBox box;
  const auto task = session->dataTask(request(peer, source), box.handler());
  held->set(task);
  task->resume();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  held->set(nullptr);
}

TEST_F(BodySourceTest, TheSessionObjectGoesDuringARead) {
  const TestTLSServer peer({.identity = &server()}, returning);
  const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
  source->onRead = [&](std::size_t given) {
    if (given > 0) session.reset();
  };
  OutcomeBox box;
  session->dataTask(request(peer, source), box.handler())->resume();
  EXPECT_TRUE(box.wait().text().ends_with(source->text));
}

TEST_F(BodySourceTest, ARedirectRewinds) {
  for (const std::string status : {"307 Temporary Redirect", "308 Permanent Redirect"}) {
    const TestTLSServer peer({.identity = &server()}, redirecting(status));
    const auto source = std::make_shared<TextSource>(mixedText(700'000));
    const std::string sent = send(peer, source).text();
    EXPECT_TRUE(sent.starts_with("POST /b HTTP/1.1\r\n"));
    EXPECT_TRUE(sent.ends_with("\r\n\r\n" + source->text));
    EXPECT_EQ(source->rewinds, 1);
  }
}

TEST_F(BodySourceTest, ARedirectToAGetLeavesItOut) {
  const TestTLSServer peer({.identity = &server()}, redirecting("303 See Other"));
  const auto source = std::make_shared<TextSource>("some body");
  const std::string sent = send(peer, source).text();
  EXPECT_TRUE(sent.starts_with("GET /b HTTP/1.1\r\n")) << sent;
  EXPECT_TRUE(sent.ends_with("\r\n\r\n")) << sent;
  EXPECT_EQ(source->rewinds, 0);
}

TEST_F(BodySourceTest, ASourceThatCannotRewindFails) {
  const TestTLSServer peer({.identity = &server()}, redirecting("307 Temporary Redirect"));
  const auto source = std::make_shared<TextSource>("some body");
  source->canRewind = false;
  EXPECT_EQ(send(peer, source).code(), NSURLErrorRequestBodyStreamExhausted);
  const TestTLSServer other({.identity = &server()}, returning);
  EXPECT_EQ(send(other, source).code(), NSURLErrorRequestBodyStreamExhausted);
}

// A server that wants no more of the body, while the source has no more to give for now.
TEST_F(BodySourceTest, ARefusedBodyWithoutALengthIsWaitedForNoLongerThanTheServer) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(readHead(client));
    static_cast<void>(client.read(std::size_t{256} << 10));
    client.write(httpResponse("too much", "413 Content Too Large", "Connection: close\r\n"));
    while (!client.read(4096).empty()) continue;
  });
  const auto door = std::make_shared<Door>();
  const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
  source->said.reset();
  source->onRead = [door](std::size_t given) {
    if (given > 0) door->pass();
  };
  URLRequest patient = request(peer, source);
  patient.setTimeoutInterval(std::chrono::milliseconds(200));
  const Outcome outcome = load(*session, patient);
  EXPECT_TRUE(outcome.text() == "too much" || outcome.code() == NSURLErrorTimedOut);
  door->open();
}

TEST_F(BodySourceTest, ARefusalWithoutAnEndTimesOutThoughTheSourceWaits) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(readHead(client));
    static_cast<void>(client.read(std::size_t{256} << 10));
    client.write("HTTP/1.1 413 Content Too Large\r\nContent-Length: 9\r\n\r\ntoo");
    while (!client.read(4096).empty()) continue;
  });
  const auto door = std::make_shared<Door>();
  const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
  source->said.reset();
  source->onRead = [door](std::size_t given) {
    if (given > 0) door->pass();
  };
  URLRequest patient = request(peer, source);
  patient.setTimeoutInterval(std::chrono::milliseconds(200));
  EXPECT_EQ(load(*session, patient).code(), NSURLErrorTimedOut);
  door->open();
}

TEST_F(BodySourceTest, ARefusalBeforeTheEndIsTaken) {
  struct Case {
    const char* fields;
    bool isBlocked;
    bool hasLength;
    bool comesLate;  // when all there is has been taken
  };
  constexpr std::size_t kFirstBlock = std::size_t{256} << 10;
  const auto door = std::make_shared<Door>();
  for (const auto& [fields, isBlocked, hasLength, comesLate] :
       {Case{"", false, true, false}, Case{"", true, true, false}, Case{"", true, true, true},
        Case{"", true, false, true}, Case{"Connection: close\r\n", true, true, true}}) {
    const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
      static_cast<void>(readHead(client));
      if (comesLate) static_cast<void>(client.read(kFirstBlock));
      client.write(httpResponse("too much", "413 Content Too Large", fields));
      while (!client.read(4096).empty()) continue;
    });
    const auto source = std::make_shared<TextSource>(mixedText(1'000'000));
    if (!hasLength) source->said.reset();
    if (isBlocked) {
      source->onRead = [door](std::size_t given) {
        if (given > 0) door->pass();
      };
    }
    const Outcome outcome = send(peer, source);
    EXPECT_EQ(outcome.text(), "too much") << fields << isBlocked << hasLength << comesLate;
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(outcome.response->httpStatusCode, 413);
  }
  door->open();
}

// Both directions at once, each held back by its own side now and then.
TEST_F(BodySourceTest, TheAnswerFlowsWhileTheBodyIsSent) {
  const std::string text = mixedText(2'000'000);
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(readHead(client));
    client.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(text.size()) + "\r\n\r\n");
    for (std::size_t done = 0; done < text.size();) {
      const std::string piece = client.read(std::min<std::size_t>(50'000, text.size() - done));
      if (piece.empty() || !client.write(piece)) return;
      done += piece.size();
    }
    static_cast<void>(client.readRequest());
  });
  auto configuration = anyPeers();
  configuration.deliveryBufferSize = 64 << 10;
  session = URLSession::create(configuration, delegate);
  const auto source = std::make_shared<TextSource>(text);
  source->step = 30'000;
  const auto task = session->dataTask(request(peer, source));
  std::atomic<int> chunk = 0;
  delegate->onData = [&](const std::shared_ptr<DataTask>& of) {
    if (++chunk % 3 == 0) {
      of->suspendDelivery();
      std::thread([of] { of->resumeDelivery(); }).detach();
    }
  };
  task->resume();
  const auto error = delegate->waitForCompletion();
  EXPECT_FALSE(error) << error->description();
  EXPECT_EQ(delegate->text(), text);
}

TEST_F(BodySourceTest, BodyAndSourceReplaceEachOther) {
  URLRequest both("https://a/");
  both.setBody(Data::fromText("body"));
  both.setBodySource(std::make_shared<TextSource>("source"));
  EXPECT_FALSE(both.body());
  ASSERT_TRUE(both.bodySource());
  both.setBody(Data::fromText("body"));
  EXPECT_FALSE(both.bodySource());
  EXPECT_TRUE(both.body());
}

}  // namespace
}  // namespace kvl::testing
