// How far tasks are, and who is told of it.
#include "platform/urlloading/ProgressMeter.h"
#include "tests/support/Halt.h"
#include "tests/support/OtherThread.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <algorithm>
#include <thread>

namespace kvl::testing {
namespace {

using urlloading::ProgressMeter;

// Remembers what an observer was told.
class States {
 public:
  [[nodiscard]] ProgressMeter::Handler handler() {
    return [this](const TransferProgress& state) {
      const MutexLock lock(mutex_);
      all_.push_back(state);
      changed_.notifyAll();
    };
  }
  [[nodiscard]] std::vector<TransferProgress> all() {
    const MutexLock lock(mutex_);
    return all_;
  }
  void waitForReceived(std::uint64_t count) {
    MutexLock lock(mutex_);
    while (all_.empty() || all_.back().received < count) changed_.wait(lock);
  }
  void waitForCount(std::size_t count) {
    MutexLock lock(mutex_);
    while (all_.size() < count) changed_.wait(lock);
  }

 private:
  Mutex mutex_;
  Condition changed_;
  std::vector<TransferProgress> all_ KVL_GUARDED_BY(mutex_);
};

class ProgressTest : public URLSessionTest {
 protected:
  // Loads the request under observation, and returns what had been told when the handler ran.
  std::vector<TransferProgress> observed(const URLRequest& request) {
    std::vector<TransferProgress> before;
    Semaphore done;
    const auto made =
        session->dataTask(request, [&](const std::optional<Data>& body, const URLResponseRef&,
                                       const std::optional<Error>& error) {
          EXPECT_FALSE(error);
          received = body ? body->size() : 0;
          before = states.all();
          done.signal();
        });
    const Observation observation = made->observeProgress(states.handler());
    made->resume();
    done.wait();
    EXPECT_EQ(made->progress(), before.back());
    return before;
  }
  States states;
  std::size_t received = 0;
};

TEST_F(ProgressTest, SendsAndReceivesAndTheLastStateComesBeforeTheHandler) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(httpResponse(std::string(500'000, 'x')));
    static_cast<void>(client.readRequest());
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("POST");
  request.setBody(Data::fromText(std::string(700'000, 'y')));
  const auto before = observed(request);
  EXPECT_EQ(before.front(), (TransferProgress{}));
  EXPECT_EQ(before.back(), (TransferProgress{700'000, 500'000, 700'000, 500'000}));
  for (std::size_t i = 1; i < before.size(); ++i) {
    EXPECT_GE(before[i].sent, before[i - 1].sent);
    EXPECT_GE(before[i].received, before[i - 1].received);
    EXPECT_NE(before[i], before[i - 1]);
  }
}

TEST_F(ProgressTest, ATaskThatNobodyObservesKnowsItself) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  EXPECT_EQ(task->progress(), TransferProgress());
  task->resume();
  static_cast<void>(box.wait());
  EXPECT_EQ(task->progress(), (TransferProgress{0, 5, 0, 5}));
}

TEST_F(ProgressTest, UnknownTotalsStayAbsent) {
  class Unknown final : public BodySource {
   public:
    std::optional<std::uint64_t> length() const override { return std::nullopt; }
    std::size_t read(std::span<std::uint8_t> room, std::optional<Error>*) override {
      if (done_) return 0;
      done_ = true;
      std::copy_n("body", 4, room.begin());
      return 4;
    }
    bool rewind() override { return false; }

   private:
    bool done_ = false;
  };
  const TestTLSServer peer({}, [](TestPeer& client) {
    std::string request;
    while (!request.ends_with("0\r\n\r\n")) request += client.read(1);
    client.write("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("PUT");
  request.setBodySource(std::make_shared<Unknown>());
  const auto last = observed(request).back();
  EXPECT_FALSE(last.toSend);
  EXPECT_FALSE(last.toReceive);
  EXPECT_EQ(last.received, 5U);
  EXPECT_GE(last.sent, 4U);
}

TEST_F(ProgressTest, ACompressedAnswerHasNoTotal) {
  // "hello", compressed by gzip.
  constexpr unsigned char kHello[] = {0x1f, 0x8b, 0x08, 0,    0,    0,    0,    0, 0,
                                      0x03, 0xcb, 0x48, 0xcd, 0xc9, 0xc9, 0x07, 0, 0x86,
                                      0xa6, 0x10, 0x36, 5,    0,    0,    0};
  const std::string body(reinterpret_cast<const char*>(kHello), sizeof kHello);
  const TestTLSServer peer({},
                           answering(httpResponse(body, "200 OK", "Content-Encoding: gzip\r\n")));
  const auto last = observed(URLRequest(peer.url("127.0.0.1"))).back();
  EXPECT_EQ(received, 5U);
  EXPECT_EQ(last, (TransferProgress{0, 5, 0, std::nullopt}));
}

TEST_F(ProgressTest, AnAnswerWithoutABodyIsKnownToBeEmpty) {
  const TestTLSServer peer({}, answering("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\n"));
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("HEAD");
  EXPECT_EQ(observed(request).back(), (TransferProgress{0, 0, 0, 0}));
}

TEST_F(ProgressTest, SendingBeginsAgainWithARedirect) {
  const TestTLSServer peer({}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(httpResponse("elsewhere", "303 See Other", "Location: /b\r\n"));
    static_cast<void>(client.readRequest());
    client.write(httpResponse("hello"));
    static_cast<void>(client.readRequest());
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setMethod("POST");
  request.setBody(Data::fromText("some body"));
  EXPECT_EQ(observed(request).back(), (TransferProgress{0, 5, 0, 5}));
}

// News that come too soon after others, and before a long silence, are told although nothing else
// happens.
TEST_F(ProgressTest, NewsAreToldWhileNothingHappens) {
  Semaphore isTold;
  const TestTLSServer peer({.identity = &server()}, [&](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\nsome");
    isTold.wait();
    client.write(" more");
    static_cast<void>(client.readRequest());
  });
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")));
  const Observation observation = task->observeProgress(states.handler());
  task->resume();
  states.waitForReceived(4);
  isTold.signal();
  states.waitForReceived(9);
  EXPECT_EQ(states.all().back(), (TransferProgress{0, 9, 0, 20}));
  task->cancel();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
}

TEST_F(ProgressTest, AnObservedTaskIsToldItsWholeBodyBeforeTheEnd) {
  constexpr int kTasks = 100;
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  for (int i = 0; i < kTasks; ++i) {
    std::string text;
    Semaphore ended;
    const auto task = session->streamingTask(
        URLRequest(peer.url("127.0.0.1")),
        {nullptr, [&](const Data& piece) { text += piece.text(); },
         [&](const URLResponseRef&, const std::optional<Error>&) { ended.signal(); }});
    const Observation observation = task->observeProgress([](const TransferProgress&) {});
    task->resume();
    ended.wait();
    ASSERT_EQ(text, "hello");
  }
}

TEST_F(ProgressTest, AnObserverEndsItselfInside) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  std::atomic<int> calls = 0;
  Observation observation;
  Semaphore made;
  Semaphore ended;
  observation = task->observeProgress([&](const TransferProgress&) {
    made.wait();
    ++calls;
    observation.end();
    ended.signal();
  });
  made.signal();
  ended.wait();
  task->resume();
  EXPECT_EQ(box.wait().text(), "hello");
  EXPECT_EQ(calls, 1);
}

TEST_F(ProgressTest, AnObservationEndsOnAnotherThreadWhenACallIsOver) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  const kvltest::Halt halt;
  std::atomic<int> over = 0;
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  auto observation = task->observeProgress([&, place = halt.place()](const TransferProgress&) {
    place();
    ++over;
  });
  ASSERT_TRUE(halt.isReached());
  task->resume();
  kvltest::OtherThread ending([&] {
    observation.end();
    EXPECT_EQ(over, 1);
  });
  EXPECT_TRUE(ending.isWaiting());
  halt.letGo();
  ending.join();
  EXPECT_EQ(box.wait().text(), "hello");
  EXPECT_EQ(over, 1) << "it hears although it has ended";
}

TEST_F(ProgressTest, TheCompletionWaitsForASlowObserver) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  Semaphore told;
  Semaphore released;
  std::atomic<bool> completed = false;
  OutcomeBox box;
  const auto task = session->dataTask(
      URLRequest(peer.url("127.0.0.1")),
      [&, handler = box.handler()](std::optional<Data> body, URLResponseRef response,
                                   std::optional<Error> error) {
        completed = true;
        handler(std::move(body), std::move(response), std::move(error));
      });
  const Observation observation = task->observeProgress([&](const TransferProgress& state) {
    if (state.received < 5) return;
    told.signal();
    released.wait();
  });
  task->resume();
  told.wait();
  EXPECT_EQ(load(*session, URLRequest(peer.url("127.0.0.1"))).text(), "hello");
  EXPECT_FALSE(completed);
  released.signal();
  EXPECT_EQ(box.wait().text(), "hello");
}

TEST_F(ProgressTest, AnObserverCancelsItsTask) {
  const TestTLSServer peer({.identity = &server()},
                           answering(httpResponse(std::string(9 << 20, 'x'))));
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  const Observation observation = task->observeProgress([&](const TransferProgress& state) {
    if (state.received > 0) task->cancel();
  });
  task->resume();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
}

TEST_F(ProgressTest, ATaskThatIsNeverStartedHasOneState) {
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest("https://127.0.0.1:1/"), box.handler());
  const Observation observation = task->observeProgress(states.handler());
  task->cancel();
  EXPECT_EQ(box.wait().code(), NSURLErrorCancelled);
  EXPECT_EQ(states.all(), std::vector<TransferProgress>(1));
}

TEST_F(ProgressTest, WhoComesLateIsToldTheLastState) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  OutcomeBox box;
  auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  task->resume();
  static_cast<void>(box.wait());
  session.reset();
  const Observation observation = task->observeProgress(states.handler());
  task.reset();
  states.waitForCount(1);
  EXPECT_EQ(states.all().front(), (TransferProgress{0, 5, 0, 5}));
}

TEST(ProgressMeterTest, ObserversHearRarelyHoweverMuchHappens) {
  using std::chrono::milliseconds;
  ProgressMeter meter;
  States states;
  const Observation observation = meter.observe(states.handler());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(meter.nextPublication(), ProgressMeter::Time::max());
  for (int i = 0; i < 1000; ++i) {
    meter.noteReceived(1);
    meter.publish(start + milliseconds(i));
  }
  EXPECT_EQ(meter.nextPublication(), start + milliseconds(950) + ProgressMeter::kInterval);
  meter.publish(start + milliseconds(999));
  Semaphore told;
  meter.finish()->async([&] { told.signal(); });
  told.wait();
  const auto all = states.all();
  EXPECT_EQ(all.size(), 22U);  // at the beginning, 20 times, and at the end
  EXPECT_EQ(all.back().received, 1000U);
}

TEST(ProgressMeterTest, WithoutAnObserverNothingIsDue) {
  ProgressMeter meter;
  meter.noteReceived(1);
  EXPECT_EQ(meter.nextPublication(), ProgressMeter::Time::max());
  EXPECT_FALSE(meter.finish());
}

// Observers that come and go while it counts, each of which hears the last state.
TEST(ProgressMeterTest, EveryObserverHearsTheLastState) {
  constexpr std::uint64_t kLast = 20'000;
  ProgressMeter meter;
  States first;
  const Observation observation = meter.observe(first.handler());
  std::vector<States> others(20);
  std::vector<Observation> observations;
  std::thread observer([&] {
    for (auto& states : others) observations.push_back(meter.observe(states.handler()));
  });
  auto now = std::chrono::steady_clock::now();
  for (std::uint64_t i = 0; i < kLast; ++i) {
    meter.noteReceived(1);
    meter.publish(now += std::chrono::milliseconds(1));
  }
  static_cast<void>(meter.finish());
  observer.join();
  first.waitForReceived(kLast);
  for (auto& states : others) states.waitForReceived(kLast);
}

}  // namespace
}  // namespace kvl::testing
