// Bodies that go to a receiver, piece by piece.
#include "platform/urlloading/DeliveryWindow.h"
#include "tests/support/FakeURLSession.h"
#include "tests/urlloading/URLSessionFixture.h"

#include <local/platform/Semaphore.h>

#include <thread>
#include <utility>

namespace kvl::testing {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::chrono::seconds kPieceTime{30};

// Remembers what a receiver was told, and waits for it.
class Pieces {
 public:
  [[nodiscard]] BodyReceiver receiver() {
    return {[this](const URLResponseRef& head) { note("head " + statusOf(head), 0); },
            [this](const Data& piece) {
              note("piece", piece.size());
              if (onPiece) onPiece();
            },
            [this](const URLResponseRef& response, const std::optional<Error>& error) {
              const std::string code = error ? std::to_string(error->code()) : "well";
              note("end " + statusOf(response) + " " + code, 0);
            }};
  }

  // Waits for the end and returns all calls, pieces in a row once.
  [[nodiscard]] std::vector<std::string> wait() {
    const auto deadline = std::chrono::steady_clock::now() + kPieceTime;
    MutexLock lock(mutex_);
    while (!ended() && changed_.waitUntil(lock, deadline)) continue;
    EXPECT_TRUE(ended());
    return calls_;
  }
  [[nodiscard]] std::string waitForEnd() { return wait().back(); }

  void waitForBytes(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + kPieceTime;
    MutexLock lock(mutex_);
    while (bytes_ < count && changed_.waitUntil(lock, deadline)) continue;
    EXPECT_GE(bytes_, count);
  }
  [[nodiscard]] std::size_t bytes() {
    const MutexLock lock(mutex_);
    return bytes_;
  }
  [[nodiscard]] int count() {
    const MutexLock lock(mutex_);
    return pieces_;
  }

  // Called in each piece. Set before anything is sent.
  std::function<void()> onPiece;

 private:
  static std::string statusOf(const URLResponseRef& response) {
    return response ? std::to_string(response->httpStatusCode.value_or(0)) : "none";
  }
  [[nodiscard]] bool ended() const KVL_REQUIRES(mutex_) {
    return !calls_.empty() && calls_.back().starts_with("end");
  }
  void note(const std::string& call, std::size_t size) {
    const MutexLock lock(mutex_);
    EXPECT_FALSE(ended()) << call << " after the end";
    EXPECT_EQ(size == 0, call != "piece");
    bytes_ += size;
    if (size > 0) ++pieces_;
    if (size == 0 || calls_.empty() || calls_.back() != call) calls_.push_back(call);
    changed_.notifyAll();
  }

  Mutex mutex_;
  Condition changed_;
  std::vector<std::string> calls_ KVL_GUARDED_BY(mutex_);
  std::size_t bytes_ KVL_GUARDED_BY(mutex_) = 0;
  int pieces_ KVL_GUARDED_BY(mutex_) = 0;
};

using Calls = std::vector<std::string>;

class StreamingTaskTest : public URLSessionTest {
 protected:
  [[nodiscard]] std::shared_ptr<DataTask> start(const URLRequest& request) {
    auto task = session->streamingTask(request, pieces.receiver());
    task->resume();
    return task;
  }
  [[nodiscard]] std::shared_ptr<DataTask> start(const TestTLSServer& peer) {
    return start(URLRequest(peer.url("127.0.0.1")));
  }
  void useBuffer(std::size_t bytes) {
    auto configuration = anyPeers();
    configuration.deliveryBufferSize = bytes;
    session = URLSession::create(configuration, delegate);
  }

  Pieces pieces;
};

// Writes a body of this size, counts what the connection takes, and waits for the client's end.
TestTLSServer::Handler flooding(std::size_t size, std::atomic<std::size_t>& written) {
  return [size, &written](TestPeer& client) {
    if (client.readRequest().empty()) return;
    client.write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
    const std::string block(std::size_t{16} << 10, 'x');
    while (written < size && client.write(block)) written += block.size();
    static_cast<void>(client.readRequest());
  };
}

TEST_F(StreamingTaskTest, PiecesMakeTheBody) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(8 * kMiB, written));
  static_cast<void>(start(peer));
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 well"}));
  EXPECT_EQ(pieces.bytes(), 8 * kMiB);
  EXPECT_GT(pieces.count(), 1);
}

TEST_F(StreamingTaskTest, TheHeadIsThatOfTheLastAnswer) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write(httpResponse("elsewhere", "302 Found", "Location: /b\r\n"));
    static_cast<void>(client.readRequest());
    client.write(httpResponse("hello", "404 Not Found"));
  });
  static_cast<void>(start(peer));
  EXPECT_EQ(pieces.wait(), (Calls{"head 404", "piece", "end 404 well"}));
  EXPECT_EQ(pieces.bytes(), 5U);
}

TEST_F(StreamingTaskTest, AnEmptyBodyHasNoPiece) {
  const TestTLSServer peer({}, answering(httpResponse("")));
  static_cast<void>(start(peer));
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "end 200 well"}));
}

TEST_F(StreamingTaskTest, NothingOfAnAnswerIsLeftOutWhereNobodyListens) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  session->streamingTask(URLRequest(peer.url("127.0.0.1")), {})->resume();
  auto receiver = pieces.receiver();
  receiver.head = nullptr;
  receiver.piece = nullptr;
  session->streamingTask(URLRequest(peer.url("127.0.0.1")), receiver)->resume();
  EXPECT_EQ(pieces.wait(), Calls{"end 200 well"});
}

TEST_F(StreamingTaskTest, ARequestThatCannotBeSentEndsAtOnce) {
  static_cast<void>(start(URLRequest("no address")));
  EXPECT_EQ(pieces.wait(), Calls{"end none " + std::to_string(NSURLErrorBadURL)});
}

TEST_F(StreamingTaskTest, ACutBodyEndsWithAnErrorAfterItsPieces) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
  });
  static_cast<void>(start(peer));
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 -1005"}));
}

TEST_F(StreamingTaskTest, ACancelInsideAPieceIsTheLast) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(8 * kMiB, written));
  std::shared_ptr<DataTask> task;
  // Others wait behind the first one by then.
  pieces.onPiece = [&] {
    while (task->progress().received < 2 * kMiB) std::this_thread::yield();
    task->cancel();
  };
  task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver());
  task->resume();
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 -999"}));
  EXPECT_EQ(pieces.count(), 1);
}

TEST_F(StreamingTaskTest, ACancelBeforeTheStartEndsIt) {
  const auto task = session->streamingTask(URLRequest("https://127.0.0.1:1/"), pieces.receiver());
  task->cancel();
  task->resume();
  EXPECT_EQ(pieces.wait(), Calls{"end none -999"});
}

TEST_F(StreamingTaskTest, ATaskLetsGoOfItsReceiverAtTheEnd) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  auto held = std::make_shared<int>(0);
  auto receiver = pieces.receiver();
  receiver.piece = [held](const Data&) {};
  const std::weak_ptr<int> watched = std::exchange(held, nullptr);
  const auto task =
      session->streamingTask(URLRequest(peer.url("127.0.0.1")), std::exchange(receiver, {}));
  task->resume();
  static_cast<void>(pieces.wait());
  while (!watched.expired()) std::this_thread::yield();
}

TEST_F(StreamingTaskTest, ASuspendedTaskHoldsTheSender) {
  constexpr std::size_t kBuffer = 128 << 10;
  useBuffer(kBuffer);
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(32 * kMiB, written));
  std::shared_ptr<DataTask> task;
  pieces.onPiece = [&] {
    if (pieces.count() == 1) task->suspendDelivery();
  };
  task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver());
  task->resume();
  pieces.waitForBytes(1);
  // The service stands still once the sockets between are full.
  for (std::size_t before = 1; std::exchange(before, written.load()) != written;)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_LT(written, 24 * kMiB);
  EXPECT_LE(pieces.bytes(), kBuffer + (std::size_t{256} << 10));
  task->resumeDelivery();
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 well"}));
  EXPECT_EQ(pieces.bytes(), 32 * kMiB);
}

TEST_F(StreamingTaskTest, TwoSuspendsNeedTwoResumes) {
  const TestTLSServer peer({.identity = &server()}, answering(httpResponse("hello")));
  const TestTLSServer other({.identity = &server()}, answering(httpResponse("well")));
  const auto task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver());
  task->suspendDelivery();
  task->suspendDelivery();
  task->resume();
  while (!task->response()) std::this_thread::yield();
  task->resumeDelivery();
  // Whatever the I/O thread and the queue had to do about it has been done by then.
  EXPECT_EQ(load(*session, URLRequest(other.url("127.0.0.1"))).text(), "well");
  EXPECT_EQ(load(*session, URLRequest(other.url("127.0.0.1"))).text(), "well");
  EXPECT_EQ(pieces.bytes(), 0U);
  task->resumeDelivery();
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 well"}));
  task->resumeDelivery();  // one too many, and too late
}

TEST_F(StreamingTaskTest, ASuspendedTaskHasNoIdleTimeout) {
  const TestTLSServer peer({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    client.write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    static_cast<void>(client.readRequest());
  });
  URLRequest request(peer.url("127.0.0.1"));
  request.setTimeoutInterval(std::chrono::milliseconds(400));
  std::shared_ptr<DataTask> task = session->streamingTask(request, pieces.receiver());
  pieces.onPiece = [&] { task->suspendDelivery(); };
  task->resume();
  pieces.waitForBytes(5);
  // A request that is begun now and is as patient shows that the time has passed.
  const TestTLSServer silent({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    static_cast<void>(client.readRequest());
  });
  URLRequest measure(silent.url("127.0.0.1"));
  measure.setTimeoutInterval(std::chrono::milliseconds(600));
  EXPECT_EQ(load(*session, measure).code(), NSURLErrorTimedOut);
  EXPECT_EQ(task->state(), DataTask::State::running);
  const auto resumption = std::chrono::steady_clock::now();
  task->resumeDelivery();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 -1001");
  EXPECT_GE(std::chrono::steady_clock::now() - resumption, std::chrono::milliseconds(400));
}

TEST_F(StreamingTaskTest, ATaskThatWasResumedBeforeItBeganHasItsIdleTimeout) {
  const TestTLSServer silent({.identity = &server()}, [](TestPeer& client) {
    static_cast<void>(client.readRequest());
    static_cast<void>(client.readRequest());
  });
  URLRequest request(silent.url("127.0.0.1"));
  request.setTimeoutInterval(std::chrono::milliseconds(100));
  const auto task = session->streamingTask(request, pieces.receiver());
  task->suspendDelivery();
  task->resumeDelivery();
  task->resume();
  EXPECT_EQ(pieces.waitForEnd(), "end none -1001");
}

TEST_F(StreamingTaskTest, ASuspendedTaskKeepsItsTotalTimeout) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(8 * kMiB, written));
  URLRequest request(peer.url("127.0.0.1"));
  request.setTotalTimeout(std::chrono::milliseconds(300));
  const auto task = session->streamingTask(request, pieces.receiver());
  task->suspendDelivery();
  task->resume();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 -1001");
}

TEST_F(StreamingTaskTest, ASuspendedTaskCanBeCancelled) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(8 * kMiB, written));
  const auto task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver());
  task->suspendDelivery();
  task->resume();
  while (!task->response()) std::this_thread::yield();
  task->cancel();
  task->resumeDelivery();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 -999");
  EXPECT_EQ(pieces.bytes(), 0U);
}

TEST_F(StreamingTaskTest, SuspendingChangesNothingForAHandler) {
  const TestTLSServer peer({}, answering(httpResponse("hello")));
  OutcomeBox box;
  const auto task = session->dataTask(URLRequest(peer.url("127.0.0.1")), box.handler());
  task->suspendDelivery();
  task->resume();
  EXPECT_EQ(box.wait().text(), "hello");
}

TEST_F(StreamingTaskTest, ADestroyedSessionObjectStillEndsIt) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(8 * kMiB, written));
  session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver())->resume();
  session.reset();
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 well"}));
  EXPECT_EQ(pieces.bytes(), 8 * kMiB);
}

TEST_F(StreamingTaskTest, TheLastReferenceMayGoInsideAPiece) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(kMiB, written));
  auto task = session->streamingTask(URLRequest(peer.url("127.0.0.1")), pieces.receiver());
  Semaphore isStarted;
  pieces.onPiece = [&] {
    if (pieces.count() > 1) return;
    isStarted.wait();
    task.reset();
    session.reset();
  };
  task->resume();
  isStarted.signal();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 well");
  EXPECT_EQ(pieces.bytes(), kMiB);
}

TEST_F(StreamingTaskTest, AnInvalidatedSessionObjectEndsIt) {
  std::atomic<std::size_t> written = 0;
  const TestTLSServer peer({.identity = &server()}, flooding(64 * kMiB, written));
  const auto task = start(peer);
  pieces.waitForBytes(1);
  session->invalidateAndCancel();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 -999");
}

TEST_F(StreamingTaskTest, ManyThreadsSuspendAndResumeWhileItRuns) {
  std::atomic<std::size_t> written = 0;
  useBuffer(64 << 10);
  const TestTLSServer peer({.identity = &server()}, flooding(4 * kMiB, written));
  const auto task = start(peer);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&task] {
      for (int round = 0; round < 200; ++round) {
        task->suspendDelivery();
        std::this_thread::yield();
        task->resumeDelivery();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(pieces.waitForEnd(), "end 200 well");
  EXPECT_EQ(pieces.bytes(), 4 * kMiB);
}

// What a class of the host's own does that overrides nothing.
TEST_F(StreamingTaskTest, AHostsOwnClassGetsOnePiece) {
  kvltest::FakeURLSession own;
  const auto task = own.streamingTask(URLRequest("https://a/"), pieces.receiver());
  task->resume();
  task->suspendDelivery();
  task->resumeDelivery();
  EXPECT_EQ(task->progress(), TransferProgress());
  const auto head =
      std::make_shared<const URLResponse>(URLResponse{*URL::parse("https://a/"), 200, {}});
  own.tasks().front()->complete(Data::fromText("hello"), head, std::nullopt);
  EXPECT_EQ(pieces.wait(), (Calls{"head 200", "piece", "end 200 well"}));

  Pieces failed;
  static_cast<void>(own.streamingTask(URLRequest("https://a/"), failed.receiver()));
  own.tasks().back()->fail(Error(NSURLErrorDomain, NSURLErrorCancelled));
  EXPECT_EQ(failed.wait(), Calls{"end none -999"});
}

TEST(DeliveryWindowTest, OpensAgainAtHalfOfTheLimitAndOnce) {
  urlloading::DeliveryWindow window(10);
  EXPECT_TRUE(window.isOpen(10));
  EXPECT_FALSE(window.isOpen(11));
  window.add(10);
  EXPECT_FALSE(window.isOpen(1));
  EXPECT_FALSE(window.release(4));
  EXPECT_TRUE(window.release(1));
  EXPECT_FALSE(window.release(1));
}

TEST(DeliveryWindowTest, ASuspendedWindowIsShutHoweverFewWait) {
  urlloading::DeliveryWindow window(10);
  window.suspend();
  window.suspend();
  EXPECT_TRUE(window.isSuspended());
  EXPECT_FALSE(window.isOpen(0));
  window.add(8);
  EXPECT_FALSE(window.release(8));
  EXPECT_FALSE(window.resume());
  EXPECT_FALSE(window.isOpen(0));
  EXPECT_TRUE(window.resume());
  EXPECT_TRUE(window.isOpen(0));
  EXPECT_TRUE(window.isSuspended()) << "the sender has not been told";
  window.noteResumed();
  EXPECT_FALSE(window.isSuspended());
  EXPECT_FALSE(window.resume());
  EXPECT_FALSE(window.isSuspended());
}

}  // namespace
}  // namespace kvl::testing
