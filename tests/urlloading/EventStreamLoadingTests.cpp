// How the bytes of an event stream become chunks between a server and the delegate.
#include "eventstream/EventFraming.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <thread>

namespace kvl::testing {
namespace {

constexpr const char* kStreamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";

// Raised once, and stays so.
class Signal {
 public:
  void raise() {
    const MutexLock lock(mutex_);
    raised_ = true;
    changed_.notifyAll();
  }
  void wait() {
    MutexLock lock(mutex_);
    while (!raised_) changed_.wait(lock);
  }

 private:
  Mutex mutex_;
  Condition changed_;
  bool raised_ KVL_GUARDED_BY(mutex_) = false;
};

// Records streams only, and can be slow to answer challenges for "localhost".
class StreamDelegate final : public RecordingDelegate {
 public:
  void didReceiveData(URLSession& of, const std::shared_ptr<DataTask>& task,
                      const Data& data) override {
    if (task->originalRequest().headers().find("Accept"))
      RecordingDelegate::didReceiveData(of, task, data);
  }
  void didReceiveChallenge(URLSession& of, const Challenge& challenge,
                           ChallengeHandler handler) override {
    if (challenge.protectionSpace.host != "localhost")
      return RecordingDelegate::didReceiveChallenge(of, challenge, std::move(handler));
    // Nobody else asks meanwhile: the I/O thread waits for the answer.
    answer = [this, &of, challenge, handler = std::move(handler)]() mutable {
      RecordingDelegate::didReceiveChallenge(of, challenge, std::move(handler));
    };
    challenged.raise();
  }

  std::function<void()> answer;
  Signal challenged;
};

class EventStreamLoadingTest : public URLSessionTest {
 protected:
  EventStreamLoadingTest() {
    streams->anchor = delegate->anchor;
    streams->credential = delegate->credential;
  }

  [[nodiscard]] std::shared_ptr<DataTask> openStream(const TestTLSServer& peer,
                                                     std::string_view path = "/") const {
    URLRequest request(peer.url("127.0.0.1", path));
    request.headers().set("Accept", "text/event-stream");
    request.setContentKind(ContentKind::eventStream);
    auto task = loader->dataTask(request);
    urlloading::setBodyFraming(*task, std::make_unique<eventstream::EventFraming>());
    task->resume();
    return task;
  }

  const std::shared_ptr<StreamDelegate> streams = std::make_shared<StreamDelegate>();
  const std::shared_ptr<URLSession> loader =
      URLSession::create(URLSessionConfiguration::ephemeral(), streams);
};

TEST_F(EventStreamLoadingTest, TheEndOfAStreamLosesNothingBesideABusyTransfer) {
  constexpr int kStreams = 100;
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    const bool isBusy = client.readRequest().starts_with("GET /busy");
    if (!client.write(kStreamHead)) return;
    if (!isBusy) {
      client.write("event: a\n\nthe rest");
      return;
    }
    const std::string block(10'000, 'x');
    while (client.write(block)) continue;
  });
  const auto busy = loader->dataTask(URLRequest(peer.url("127.0.0.1", "/busy")));
  busy->resume();
  std::string expected;
  for (int i = 0; i < kStreams; ++i) {
    const auto stream = openStream(peer);
    while (streams->completions() == i) std::this_thread::yield();
    expected += "event: a\n\nthe rest";
  }
  busy->cancel();
  EXPECT_EQ(streams->text(), expected);
}

TEST_F(EventStreamLoadingTest, WhatHasArrivedTogetherIsJoined) {
  constexpr int kWrites = 1000;
  const std::string event = "event: a\ndata: " + std::string(40, 'x') + "\n\n";
  Signal loaderIsBusy;
  Signal written;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(std::string(kStreamHead) + "event: first\n\n");
    loaderIsBusy.wait();
    for (int i = 0; i < kWrites; ++i) client.write(event);
    written.raise();
    static_cast<void>(client.readRequest());
  });
  const TestTLSServer other({.identity = &server()}, answering(httpResponse("hello")));
  const auto stream = openStream(peer);
  streams->waitForBytes(1);
  OutcomeBox box;
  loader->dataTask(URLRequest(other.url("localhost")), box.handler())->resume();
  streams->challenged.wait();
  loaderIsBusy.raise();
  written.wait();
  streams->answer();
  std::string all;
  for (int i = 0; i < kWrites; ++i) all += event;
  streams->waitForBytes(std::string("event: first\n\n").size() + all.size());
  EXPECT_EQ(streams->text(), "event: first\n\n" + all);
  // libcurl alone gives one chunk for each hundred writes. One would do, but for a thread that is
  // kept from running.
  EXPECT_LE(streams->chunks().size(), kWrites / 150U);
  EXPECT_EQ(box.wait().text(), "hello");
  stream->cancel();
}

TEST_F(EventStreamLoadingTest, WhatComesApartStaysApart) {
  Signal first;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(std::string(kStreamHead) + "event: a\n");
    first.wait();
    client.write("data: b\n\n");
  });
  const auto stream = openStream(peer);
  streams->waitForBytes(1);
  first.raise();
  EXPECT_FALSE(streams->waitForCompletion());
  EXPECT_EQ(streams->chunks(), (std::vector<std::string>{"event: a\n", "data: b\n\n"}));
}

TEST_F(EventStreamLoadingTest, AnEventOfManyRecordsIsOneChunk) {
  const std::string event = "event: a\ndata: " + std::string(5 << 20, 'x') + "\n\n";
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(kStreamHead + event);
  });
  const auto stream = openStream(peer);
  EXPECT_FALSE(streams->waitForCompletion());
  EXPECT_EQ(streams->chunks(), std::vector<std::string>{event});
}

TEST_F(EventStreamLoadingTest, WhatARequestAcceptsFramesNoBody) {
  const std::string event = "event: a\ndata: " + std::string(5 << 20, 'x') + "\n\n";
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(kStreamHead + event);
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.headers().set("Accept", "text/event-stream");
  const auto task = loader->dataTask(request);
  task->resume();
  EXPECT_FALSE(streams->waitForCompletion());
  EXPECT_GT(streams->chunks().size(), 1U);
  EXPECT_EQ(streams->text(), event);
}

}  // namespace
}  // namespace kvl::testing
