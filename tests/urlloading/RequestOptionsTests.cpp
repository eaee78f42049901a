// What a request may ask for beside the usual, and the handle of an exchange.
#include "platform/urlloading/ExchangeState.h"
#include "tests/support/FakeURLSession.h"
#include "tests/support/HTTP2Peer.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <atomic>
#include <thread>

namespace kvl::testing {
namespace {

using std::chrono::milliseconds;

class RequestOptionsTest : public URLSessionTest {
 protected:
  // One connection at a time, over HTTP/1.1.
  void useOneConnection() {
    auto configuration = anyPeers();
    configuration.maximumConnectionsPerHost = 1;
    configuration.allowsHTTP2 = false;
    session = URLSession::create(configuration, delegate);
  }
};

// A body that comes in small pieces without an end, until the client has gone.
void trickle(TestPeer& client) {
  static_cast<void>(client.readRequest());
  client.write("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
  while (client.write("x")) std::this_thread::sleep_for(milliseconds(20));
}

TEST_F(RequestOptionsTest, TheTotalTimeEndsATrickle) {
  const TestTLSServer peer({.identity = &server()}, trickle);
  URLRequest request(peer.url("127.0.0.1"));
  request.setTimeoutInterval(std::chrono::seconds(20));
  request.setTotalTimeout(milliseconds(300));
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
}

TEST_F(RequestOptionsTest, TheIdleTimeSparesIt) {
  const TestTLSServer peer({.identity = &server()}, trickle);
  URLRequest request(peer.url("127.0.0.1"));
  constexpr milliseconds kIdle{600};
  request.setTimeoutInterval(kIdle);
  const auto task = session->dataTask(request);
  task->resume();
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t bytes = 1; std::chrono::steady_clock::now() - start < kIdle * 4 / 3; ++bytes)
    delegate->waitForBytes(bytes);
  EXPECT_EQ(task->state(), DataTask::State::running);
  task->cancel();
  EXPECT_EQ(delegate->waitForCompletion()->code(), NSURLErrorCancelled);
}

TEST_F(RequestOptionsTest, TheTotalTimeHoldsForStreamsAndWhateverTheConfigurationAllows) {
  const TestTLSServer peer({.identity = &server()}, trickle);
  auto configuration = anyPeers();
  configuration.timeoutIntervalForResource = std::chrono::hours(1);
  const auto loader = URLSession::create(configuration, delegate);
  URLRequest request(peer.url("127.0.0.1"));
  request.setTotalTimeout(milliseconds(200));
  EXPECT_EQ(load(*loader, request).code(), NSURLErrorTimedOut);
  request.setContentKind(ContentKind::eventStream);
  EXPECT_EQ(load(*loader, request).code(), NSURLErrorTimedOut);
}

TEST_F(RequestOptionsTest, TheConfigurationsTimeHoldsWhereItIsLess) {
  const TestTLSServer peer({.identity = &server()}, trickle);
  auto configuration = anyPeers();
  configuration.timeoutIntervalForResource = milliseconds(200);
  const auto loader = URLSession::create(configuration, delegate);
  URLRequest request(peer.url("127.0.0.1"));
  request.setTotalTimeout(std::chrono::hours(1));
  EXPECT_EQ(load(*loader, request).code(), NSURLErrorTimedOut);
}

TEST_F(RequestOptionsTest, TheTotalTimeCountsRedirects) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    while (!client.readRequest().empty()) {
      std::this_thread::sleep_for(milliseconds(40));
      client.write(httpResponse("", "302 Found", "Location: /again\r\n"));
    }
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setTotalTimeout(milliseconds(200));
  EXPECT_EQ(load(*session, request).code(), NSURLErrorTimedOut);
}

// Notes which paths are asked for, the first answer not before `count` requests wait behind it.
class OrderedPeer {
 public:
  TestTLSServer::Handler handler() {
    return [this](TestPeer& client) {
      for (;;) {
        const std::string request = client.readRequest();
        if (request.empty()) return;
        {
          MutexLock lock(mutex_);
          asked_ += request.substr(5, 1);
          changed_.notifyAll();
          while (!isOpen_) changed_.wait(lock);
        }
        client.write(httpResponse("hello"));
      }
    };
  }
  void waitForFirst() {
    MutexLock lock(mutex_);
    while (asked_.empty()) changed_.wait(lock);
  }
  void open() {
    const MutexLock lock(mutex_);
    isOpen_ = true;
    changed_.notifyAll();
  }
  std::string asked() {
    const MutexLock lock(mutex_);
    return asked_;
  }

 private:
  Mutex mutex_;
  Condition changed_;
  bool isOpen_ KVL_GUARDED_BY(mutex_) = false;
  std::string asked_ KVL_GUARDED_BY(mutex_);
};

TEST_F(RequestOptionsTest, HighGoesBeforeUsualBeforeLow) {
  OrderedPeer order;
  const TestTLSServer peer({.identity = &server()}, order.handler());
  useOneConnection();
  const auto start = [&](const std::string& name, RequestPriority priority, OutcomeBox& box) {
    URLRequest request(peer.url("127.0.0.1", "/" + name));
    request.setPriority(priority);
    session->dataTask(request, box.handler())->resume();
  };
  OutcomeBox boxes[5];
  start("0", RequestPriority::usual, boxes[0]);
  order.waitForFirst();
  start("1", RequestPriority::low, boxes[1]);
  start("2", RequestPriority::usual, boxes[2]);
  start("3", RequestPriority::high, boxes[3]);
  start("4", RequestPriority::usual, boxes[4]);
  // The I/O thread takes what was started in order: once the last one has failed, all wait.
  OutcomeBox last;
  URLRequest refused("https://127.0.0.1:1/");
  session->dataTask(refused, last.handler())->resume();
  EXPECT_EQ(last.wait().code(), NSURLErrorCannotConnectToHost);
  order.open();
  for (auto& box : boxes) EXPECT_EQ(box.wait().text(), "hello");
  EXPECT_EQ(order.asked(), "03241");
}

TEST_F(RequestOptionsTest, APriorityIsToldOverHTTP2AndTheUsualOneIsNot) {
  constexpr std::uint8_t kHasPriority = 0x20;
  constexpr std::size_t kWeight = 4;  // behind the stream that it depends on
  std::vector<int> weights;
  const TestTLSServer peer({.identity = &server(), .protocol = "h2"}, [&](TestPeer& client) {
    HTTP2Peer http(client);
    while (const auto head = http.nextOf(HTTP2Frame::headers)) {
      const bool has = (head->flags & kHasPriority) != 0 && head->payload.size() > kWeight;
      weights.push_back(has ? static_cast<std::uint8_t>(head->payload[kWeight]) + 1 : 16);
      http.sendHead(head->stream, true);
    }
  });
  for (const auto priority :
       {RequestPriority::low, RequestPriority::usual, RequestPriority::high}) {
    URLRequest request(peer.url("127.0.0.1"));
    request.setPriority(priority);
    const Outcome outcome = load(*session, request);
    EXPECT_FALSE(outcome.error) << outcome.error->description();
  }
  EXPECT_EQ(weights, (std::vector{1, 16, 256}));
}

TEST(ExchangeTest, OptionsBecomeTheRequests) {
  URLRequest request("https://a/");
  request.headers().set("Accept", "a");
  request.headers().set("X-Kept", "b");
  urlloading::apply({}, request);
  EXPECT_EQ(request.headers().size(), 2U);
  EXPECT_FALSE(request.timeoutInterval());
  EXPECT_FALSE(request.totalTimeout());
  RequestOptions options;
  options.headers.set("accept", "c");
  options.headers.set("X-New", "d");
  options.idleTimeout = std::chrono::seconds(1);
  options.totalTimeout = std::chrono::seconds(2);
  options.priority = RequestPriority::low;
  urlloading::apply(options, request);
  EXPECT_EQ(request.headers().find("Accept"), "c");
  EXPECT_EQ(request.headers().find("X-Kept"), "b");
  EXPECT_EQ(request.headers().find("X-New"), "d");
  EXPECT_EQ(request.timeoutInterval(), std::chrono::seconds(1));
  EXPECT_EQ(request.totalTimeout(), std::chrono::seconds(2));
  EXPECT_EQ(request.priority(), RequestPriority::low);
}

TEST(ExchangeTest, AnEmptyOneIsOver) {
  const Exchange none;
  none.cancel();
  EXPECT_TRUE(none.isOver());
  EXPECT_FALSE(none.task());
  EXPECT_EQ(none.progress(), TransferProgress());
  static_cast<void>(none.observeProgress([](const TransferProgress&) { FAIL(); }));
}

struct StateAndHandle {
  urlloading::HandlerTurnRef turn = std::make_shared<urlloading::HandlerTurn>();
  std::shared_ptr<urlloading::ExchangeState> state =
      std::make_shared<urlloading::ExchangeState>(turn);
  Exchange handle{state};
};

TEST(ExchangeTest, ACancelReachesTheTaskNowOrOnceItIsThere) {
  kvltest::FakeURLSession loader;
  for (const bool isEarly : {true, false}) {
    const StateAndHandle exchange;
    const auto task = loader.dataTask(URLRequest("https://a/"));
    if (isEarly) exchange.handle.cancel();
    exchange.state->setTask(task);
    if (!isEarly) exchange.handle.cancel();
    EXPECT_EQ(task->state(), DataTask::State::canceling);
    EXPECT_EQ(exchange.handle.task(), task);
    EXPECT_FALSE(exchange.handle.isOver());
    EXPECT_FALSE(exchange.turn->begin());
    EXPECT_TRUE(exchange.handle.isOver());
  }
}

TEST(ExchangeTest, ACancelAfterTheBeginningIsNone) {
  kvltest::FakeURLSession loader;
  const StateAndHandle exchange;
  const auto task = loader.dataTask(URLRequest("https://a/"));
  exchange.state->setTask(task);
  EXPECT_TRUE(exchange.turn->begin());
  exchange.handle.cancel();
  EXPECT_EQ(task->state(), DataTask::State::suspended);
}

// The beginning and a cancel at the same time: the handler hears of the cancel, or there was none.
TEST(ExchangeTest, ACancelThatCountsIsHeardOf) {
  kvltest::FakeURLSession loader;
  for (int round = 0; round < 200; ++round) {
    const StateAndHandle exchange;
    const auto task = loader.dataTask(URLRequest("https://a/"));
    exchange.state->setTask(task);
    std::atomic<int> ready = 0;
    const auto meet = [&ready] {
      for (++ready; ready < 2;) continue;
    };
    std::thread other([&meet, handle = exchange.handle] {
      meet();
      handle.cancel();
    });
    meet();
    for (std::atomic<int> delay = round; delay > 0;) --delay;  // each time at another moment
    const bool begins = exchange.turn->begin();
    other.join();
    EXPECT_EQ(begins, task->state() == DataTask::State::suspended);
  }
}

TEST(OutcomeTextTest, NamesTheAnswerOrTheError) {
  const auto answer = [](int status) {
    return std::make_shared<const URLResponse>(
        URLResponse{*URL::parse("https://a/b/c?d=e"), status, {}});
  };
  const Error lost(NSURLErrorDomain, NSURLErrorNetworkConnectionLost,
                   {{NSLocalizedDescriptionKey, "The connection was lost."}});
  EXPECT_EQ(outcomeText(answer(404), std::nullopt), "404 Not Found from /b/c");
  EXPECT_EQ(outcomeText(answer(200), std::nullopt), "200 OK from /b/c");
  EXPECT_EQ(outcomeText(answer(300), lost), "300 Multiple Choices from /b/c");
  EXPECT_EQ(outcomeText(answer(299), lost), outcomeText(nullptr, lost));
  EXPECT_NE(outcomeText(nullptr, lost).find("The connection was lost."), std::string::npos);
  EXPECT_NE(outcomeText(nullptr, lost).find("-1005"), std::string::npos);
  EXPECT_EQ(outcomeText(nullptr, std::nullopt), "No answer");
  EXPECT_EQ(outcomeText(std::make_shared<const URLResponse>(
                            URLResponse{*URL::parse("data:,"), std::nullopt, {}}),
                        std::nullopt),
            "No answer");
}

}  // namespace
}  // namespace kvl::testing
