// A session that ends while what it really loads waits for the host.
#include "tests/session/SessionFixture.h"
#include "tests/support/Halt.h"
#include "tests/support/TestTLSServer.h"
#include "tests/support/WaitUntil.h"

#include <local/platform/BodySource.h>
#include <local/platform/Semaphore.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace {

using namespace kvltest;
using namespace std::chrono_literals;
using kvl::testing::TestPeer;
using kvl::testing::TestTLSServer;

// Stands at its first read.
class HaltedSource final : public kvl::BodySource {
 public:
  explicit HaltedSource(const Halt& halt) : place_(halt.place()) {}
  std::optional<std::uint64_t> length() const override { return 1000; }
  std::size_t read(std::span<std::uint8_t> room, std::optional<kvl::Error>* /*error*/) override {
    place_();
    std::ranges::fill(room, std::uint8_t{'x'});
    return room.size();
  }
  bool rewind() override { return true; }

 private:
  const std::function<void()> place_;
};

class SessionEndLoadingTest : public SessionFixture {
 protected:
  void SetUp() override {
    create();
    establish();
    auto configuration = kvl::URLSessionConfiguration::ephemeral();
    configuration.allowsInsecureHTTPLoads = true;
    session->setSession(kvl::URLSession::create(configuration, session));
    (void)queue->takeDelays();
  }
  // Ends the session and waits until that is complete, whoever waits for the host.
  void end() {
    kvl::Semaphore ended;
    session->end([&](auto&&...) { ended.signal(); });
    ASSERT_TRUE(ended.waitFor(60s));
    EXPECT_EQ(session->state(), KVLSessionStateEnded);
  }
  // The one outcome has come, and nothing but the test holds the session.
  void expectOneCancellation() {
    ASSERT_TRUE(told.waitFor(60s));
    EXPECT_EQ(code, kvl::NSURLErrorCancelled);
    queue->dropPending();
    const std::weak_ptr<KVLSession> watch = std::exchange(session, nullptr);
    EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
    EXPECT_EQ(calls, 1);
  }
  void note(const std::optional<kvl::Error>& error) {
    ++calls;
    code = error ? error->code() : 0;
    told.signal();
  }

  const TestTLSServer server{{}, [](TestPeer& peer) {
                               (void)peer.readRequest();
                               peer.write(
                                   "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                                   "Content-Length: 1000\r\n\r\nevent: a\n\n");
                               (void)peer.readRequest();
                             }};
  const std::string address = server.url("127.0.0.1");
  std::atomic<int> calls = 0;
  std::atomic<std::int64_t> code = 0;
  kvl::Semaphore told;
};

TEST_F(SessionEndLoadingTest, DuringAReadOfABody) {
  const Halt halt;
  auto source = std::make_shared<HaltedSource>(halt);
  kvl::URLRequest request(address);
  request.setMethod("POST");
  request.setBodySource(source);
  session->request(std::exchange(request, kvl::URLRequest("a")),
                   [this](auto&&, auto&&, const auto& error) { note(error); });
  ASSERT_TRUE(halt.isReached());
  end();
  expectOneCancellation();
  const std::weak_ptr<HaltedSource> watch = std::exchange(source, nullptr);
  EXPECT_FALSE(watch.expired()) << "the read is not over";
  halt.letGo();
  EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

TEST_F(SessionEndLoadingTest, WhileDeliveryIsSuspended) {
  kvl::Semaphore isStarted;
  kvl::Semaphore isSuspended;
  std::shared_ptr<kvl::DataTask> task;
  kvl::BodyReceiver receiver;
  receiver.piece = [&](const kvl::Data&) {
    isStarted.wait();
    task->suspendDelivery();
    isSuspended.signal();
  };
  receiver.end = [this](auto&&, const auto& error) { note(error); };
  task = session->requestPieces(kvl::URLRequest(address), receiver);
  isStarted.signal();
  ASSERT_TRUE(isSuspended.waitFor(60s));
  end();
  task->resumeDelivery();
  expectOneCancellation();
  EXPECT_EQ(task->state(), kvl::DataTask::State::completed);
}

TEST_F(SessionEndLoadingTest, WhileItsStreamIsHeld) {
  kvl::Semaphore arrived;
  const auto observation = session->observeEvents([&](auto&&...) {
    session->holdEvents(true);
    arrived.signal();
  });
  session->setEventStreamSource(address);
  ASSERT_TRUE(arrived.waitFor(60s));
  const std::weak_ptr<kvl::DataTask> stream = session->eventStream()->task();
  end();
  EXPECT_TRUE(waitUntil([&] { return stream.expired(); })) << "it keeps its connection for good";
  session->holdEvents(false);
  EXPECT_TRUE(queue->takeDelays().empty()) << "it is opened again";
}

}  // namespace
